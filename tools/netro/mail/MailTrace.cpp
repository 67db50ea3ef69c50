// What "netro mail --trace" shows: a table for each recipient, its servers in the order in which
// they would be tried.

#include "mail/MailTrace.h"

#include <netro/Localization.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "terminal/Encoding.h"
#include "terminal/JsonOutput.h"
#include "terminal/Terminal.h"
#include "terminal/TextWidth.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::int32_t kSocketErrors = 10000;

bool Takes(const ExchangerTrace& server) { return server.RecipientAccepted; }

bool IsGoodOne(const MailTrace& trace) { return std::ranges::any_of(trace.Exchangers, Takes); }

std::string Joined(const std::vector<std::string>& words, const char* between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

/// Up to where the session came, in a few words.
std::string Verdict(const ExchangerTrace& server) {
  if (server.RecipientAccepted) return Styled(Style::Green, "takes it");
  const std::string step = SMTPCls().GetSMTPStepName(server.StepID);
  const std::string number =
      server.Result >= kSocketErrors ? " (" + std::to_string(server.Result) + ")" : "";
  return Styled(Style::Red, "fails") + " at " + step + ": " + OnOneLine(server.ResultMessage) + number;
}

void PrintField(const char* name, const std::string& value) {
  if (!value.empty()) Print("    " + Fitted(name, 12) + OnOneLine(value) + "\n");
}

std::string TlsText(const ExchangerTrace& server) {
  if (!server.Protected) return server.Address.empty() ? "" : "none";
  const TlsInfo& info = server.TlsInfo;
  return info.protocol + ", " + info.cipher + ", " + info.subject + ", " +
         std::to_string(info.daysLeft) + " days left";
}

void PrintServer(const ExchangerTrace& server) {
  const std::string address = server.Address.empty() ? Joined(server.Addresses, ", ") : server.Address;
  Print("  " + Styled(Style::Bold, OnOneLine(server.Host)) +
        (address.empty() ? "" : " (" + OnOneLine(address) + ")") + ": " + Verdict(server) + "\n");
  PrintField("greeting", server.Greeting);
  PrintField("extensions", Joined(server.Extensions, ", "));
  PrintField("TLS", TlsText(server));
  if (server.LoggedIn) PrintField("login", "accepted");
}

Json ToJson(const ExchangerTrace& server) {
  return {{"host", server.Host},
          {"addresses", server.Addresses},
          {"address", server.Address},
          {"greeting", server.Greeting},
          {"extensions", server.Extensions},
          {"tls", server.Protected
                      ? Json{{"protocol", server.TlsInfo.protocol},
                             {"cipher", server.TlsInfo.cipher},
                             {"subject", server.TlsInfo.subject},
                             {"issuer", server.TlsInfo.issuer},
                             {"days_left", server.TlsInfo.daysLeft}}
                      : Json()},
          {"logged_in", server.LoggedIn},
          {"sender_accepted", server.SenderAccepted},
          {"recipient_accepted", server.RecipientAccepted},
          {"step", {{"number", server.StepID}, {"name", SMTPCls().GetSMTPStepName(server.StepID)}}},
          {"result", server.Result},
          {"message", server.ResultMessage}};
}

}  // namespace

bool IsGood(const std::vector<MailTrace>& traces) {
  return !traces.empty() && std::ranges::all_of(traces, IsGoodOne);
}

void PrintTrace(const std::vector<MailTrace>& traces) {
  for (const MailTrace& trace : traces) {
    const bool asked = trace.ResultClass == 0;
    Print(OnOneLine(trace.Address) +
          (asked ? "\n"
                 : ": " + Styled(Style::Red, "nobody to ask") + ", " +
                       OnOneLine(trace.ResultMessage) + "; " + GetMessageText(trace.ResultClass) +
                       "\n"));
    for (const ExchangerTrace& server : trace.Exchangers) PrintServer(server);
  }
}

void PrintTraceJson(const SendMailCls& mail, const std::vector<MailTrace>& traces) {
  Json object = {{"ok", IsGood(traces)},
                 {"error", {{"number", mail.Result()},
                            {"text", mail.Result() == 0 ? "" : mail.ResultMessage()}}},
                 {"recipients", Json::array()}};
  for (const MailTrace& trace : traces) {
    Json one = {{"address", trace.Address},
                {"ok", IsGoodOne(trace)},
                {"class", trace.ResultClass},
                {"message", trace.ResultMessage},
                {"servers", Json::array()}};
    for (const ExchangerTrace& server : trace.Exchangers) one["servers"].push_back(ToJson(server));
    object["recipients"].push_back(std::move(one));
  }
  PrintObject(object);
}

}  // namespace netro::tool
