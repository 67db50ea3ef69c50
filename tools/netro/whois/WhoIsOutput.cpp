// How "netro whois" shows what it got.

#include "whois/WhoIsOutput.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "terminal/Encoding.h"
#include "terminal/FailureText.h"
#include "terminal/JsonOutput.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

bool IsGood(const WhoIsAnswer& answer) { return answer.errorNumber == 0; }

Json ToJson(const WhoIsAnswer& answer) {
  Json object = {
      {"server", answer.server.Text()},
      {"ok", IsGood(answer)},
      {"error", {{"number", answer.errorNumber}, {"text", answer.errorText}}},
      {"seconds", answer.seconds},
      {"received_bytes", answer.text.size()},
      {"refers_to", answer.next ? Json(answer.next->Text()) : Json(nullptr)},
      {"notes", answer.notes},
  };
  if (IsUtf8(answer.text)) {
    object["answer"] = answer.text;
  } else {
    object["answer_base64"] = Base64(answer.text);
  }
  return object;
}

}  // namespace

void WhoIsPrinter::Print(const WhoIsAnswer& answer) {
  if (headings_) {
    const std::string gap = first_ ? "" : lineIsOpen_ ? "\n\n" : "\n";
    tool::Print(gap + Styled(Style::Bold, "% " + answer.server.Text()) + "\n");
  }
  PrintForeign(answer.text);
  first_ = false;
  lineIsOpen_ = !IsTerminal(Stream::Output) && !answer.text.empty() && !answer.text.ends_with('\n');
}

void PrintWhoIsJson(const WhoIsRequest& request, const std::vector<WhoIsAnswer>& answers) {
  Json object = {{"query", request.name},
                 {"ok", std::ranges::all_of(answers, IsGood)},
                 {"answers", Json::array()}};
  for (const WhoIsAnswer& answer : answers) object["answers"].push_back(ToJson(answer));
  PrintObject(object);
}

void ExplainWhoIs(const WhoIsAnswer& answer, const WhoIsRequest& request) {
  const std::string server = answer.server.Text();
  if (!IsGood(answer)) {
    const std::string what = answer.text.empty() ? "cannot ask " + server
                                                 : "the answer of " + server + " is not complete";
    ShowMessage(FailureText(what, answer.errorNumber, answer.errorText) +
                TimeoutAdvice(answer.errorNumber, request.connection.timeout));
  } else if (answer.text.empty()) {
    ShowMessage(server + " closed the connection without an answer");
  }
  for (const std::string& note : answer.notes) ShowMessage(note);
}

}  // namespace netro::tool
