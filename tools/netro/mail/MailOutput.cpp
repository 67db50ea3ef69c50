// How "netro mail" tells what became of a message.

#include "mail/MailOutput.h"

#include <netro/Localization.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "terminal/Encoding.h"
#include "terminal/FailureText.h"
#include "terminal/JsonOutput.h"
#include "terminal/SecondsText.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

/// Result class of a recipient whose session was cancelled, or never begun.
constexpr std::int32_t kPending = 3018;
/// Of one whose server had all of the message and did not answer; it has no message.
constexpr std::int32_t kMayHaveArrived = 3019;

std::string ClassText(std::int32_t number) {
  return number == kMayHaveArrived ? "May have arrived" : GetMessageText(number);
}

std::string StepName(std::int32_t step) { return SMTPCls().GetSMTPStepName(step); }

std::string ListOf(const RecipientOutcome& outcome) {
  constexpr const char* kLists[] = {"", "to", "cc", "bcc"};
  return kLists[outcome.Type];
}

std::string GoodWord(const MailOptions& options) {
  if (!options.lastStep.empty()) return "as far as \"" + options.lastStep + "\" all is well";
  return options.simulate ? "would be accepted" : "accepted";
}

std::string Verdict(const RecipientOutcome& outcome, const MailOptions& options) {
  std::string said = StepName(outcome.StepID) + ": " + OnOneLine(outcome.ResultMessage);
  said.erase(said.find_last_not_of('.') + 1);
  if (outcome.Accepted) {
    return Styled(Style::Green, GoodWord(options)) +
           (outcome.StepID == SMTP_STEP_DONE ? "" : ", but then " + said);
  }
  if (outcome.ResultClass == kPending) {
    return Styled(Style::Red, outcome.StepID == SMTP_STEP_NOERROR
                                  ? "not tried"
                                  : "cancelled at " + StepName(outcome.StepID));
  }
  return Styled(Style::Red, "failed") + " at " + said + "; " + ClassText(outcome.ResultClass) +
         " (" + std::to_string(outcome.ResultClass) + ")";
}

Json NumberAndText(std::int32_t number, const std::string& text) {
  return {{"number", number}, {"text", number == 0 ? "" : text}};
}

Json ToJson(const RecipientOutcome& outcome, bool transcript) {
  Json object = {
      {"address", outcome.Address},
      {"list", ListOf(outcome)},
      {"accepted", outcome.Accepted},
      {"step", {{"number", outcome.StepID}, {"name", StepName(outcome.StepID)}}},
      {"result", outcome.Result},
      {"message", outcome.ResultMessage},
      {"class", NumberAndText(outcome.ResultClass, ClassText(outcome.ResultClass))},
  };
  object["enhanced_status"] = outcome.EnhancedStatus;
  object["tries"] = Json::array();
  for (const DeliveryTry& one : outcome.Tries) {
    object["tries"].push_back({{"host", one.Host},
                               {"address", one.Address},
                               {"protected", one.Protected},
                               {"step", {{"number", one.StepID}, {"name", StepName(one.StepID)}}},
                               {"result", one.Result},
                               {"message", one.ResultMessage}});
  }
  if (transcript) object["transcript"] = outcome.Protocol;
  return object;
}

}  // namespace

void PrintMail(const SendMailCls& mail, const MailOptions& options) {
  for (const RecipientOutcome& outcome : mail.Outcomes()) {
    const std::string list = outcome.Type == RecipientStandard ? "" : " (" + ListOf(outcome) + ")";
    Print(OnOneLine(outcome.Address) + list + ": " + Verdict(outcome, options) + "\n");
  }
}

void PrintMailJson(const SendMailCls& mail, const MailOptions& options, double seconds) {
  Json object = {{"ok", mail.Result() == 0},
                 {"simulated", options.simulate || !options.lastStep.empty()},
                 {"message_bytes", mail.MessageSize()},
                 {"seconds", seconds},
                 {"error", NumberAndText(mail.Result(), mail.ResultMessage())},
                 {"recipients", Json::array()}};
  for (const RecipientOutcome& outcome : mail.Outcomes()) {
    object["recipients"].push_back(ToJson(outcome, options.transcript));
  }
  PrintObject(object);
}

void ExplainMail(const SendMailCls& mail, const MailOptions& options) {
  const auto& outcomes = mail.Outcomes();
  const auto tell = [&](bool when, const std::string& text) {
    if (when) ShowMessage(text);
  };
  tell(outcomes.empty(), FailureText("nothing was sent", mail.Result(), mail.ResultMessage()));
  tell(std::ranges::any_of(outcomes, IsMailTimeout, &RecipientOutcome::Result),
       "the limit of each wait is " + SecondsText(options.connection.connection.timeout) +
           " s, --timeout changes it" +
           (options.connection.total == 0
                ? ""
                : ", and of a whole session " + SecondsText(options.connection.total) +
                      " s, --total"));
  tell(std::ranges::count(outcomes, SMTP_STEP_INITSOCKET, &RecipientOutcome::StepID) > 0,
       "InitSocket: the name of the server or the proxy has no address");
}

}  // namespace netro::tool
