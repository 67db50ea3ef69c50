// How "netro whois" shows what it got.

#include "whois/WhoIsOutput.h"

#include <nlohmann/json.hpp>
#include <string>

#include "terminal/Encoding.h"
#include "terminal/FailureText.h"
#include "terminal/JsonOutput.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

bool IsGood(const WhoIsAnswer& answer) { return answer.LastErr == 0; }

Json ToJson(const WhoIsAnswer& answer) {
  Json object = {
      {"server", answer.Server},
      {"query", answer.Query},
      {"ok", IsGood(answer)},
      {"error", {{"number", answer.LastErr}, {"text", answer.LastErrMsg}}},
      {"seconds", answer.Seconds},
      {"received_bytes", answer.Text.size()},
      {"refers_to", answer.RefersTo.empty() ? Json(nullptr) : Json(answer.RefersTo)},
      {"notes", answer.Notes},
  };
  if (IsUtf8(answer.Text)) {
    object["answer"] = answer.Text;
  } else {
    object["answer_base64"] = Base64(answer.Text);
  }
  return object;
}

}  // namespace

void WhoIsPrinter::Print(const WhoIsAnswer& answer) {
  if (headings_) {
    const std::string gap = first_ ? "" : lineIsOpen_ ? "\n\n" : "\n";
    tool::Print(gap + Styled(Style::Bold, "% " + OnOneLine(answer.Server)) + "\n");
  }
  PrintForeign(answer.Text);
  first_ = false;
  lineIsOpen_ = !IsTerminal(Stream::Output) && !answer.Text.empty() && !answer.Text.ends_with('\n');
}

void PrintWhoIsJson(const WhoIsRequest& request, const WhoIsCls& client) {
  Json object = {
      {"query", request.name}, {"ok", client.LastErr() == 0}, {"answers", Json::array()}};
  for (const WhoIsAnswer& answer : client.Answers()) object["answers"].push_back(ToJson(answer));
  PrintObject(object);
}

void ExplainWhoIs(const WhoIsAnswer& answer, const WhoIsRequest& request) {
  const std::string server = answer.Server;
  if (!IsGood(answer)) {
    const std::string what = answer.Text.empty() ? "cannot ask " + server
                                                 : "the answer of " + server + " is not complete";
    std::string limits = TimeoutAdvice(answer.LastErr, request.connection.timeout);
    if (!limits.empty() && request.total != 0) {
      limits += ", and for all " + SecondsText(request.total) + " s, --total";
    }
    ShowMessage(FailureText(what, answer.LastErr, answer.LastErrMsg) + limits);
  } else if (answer.Text.empty()) {
    ShowMessage(server + " closed the connection without an answer");
  }
  for (const std::string& note : answer.Notes) ShowMessage(note);
}

void ExplainRefusal(const WhoIsCls& client) {
  ShowMessage(FailureText("cannot ask", client.LastErr(), client.LastErrMsg()));
}

}  // namespace netro::tool
