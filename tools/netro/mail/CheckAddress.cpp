// "netro check-address": mail addresses checked with SendMailCls.

#include <netro/Localization.h>
#include <netro/SendMailCls.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "mail/AddressCheck.h"
#include "mail/Mail.h"
#include "mail/MailConnection.h"
#include "mail/MailDisplay.h"
#include "terminal/Encoding.h"
#include "terminal/Interrupt.h"
#include "terminal/JsonOutput.h"
#include "terminal/SecondsText.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
  std::vector<std::string> addresses;
  std::string tlds;
  AddressCheckOptions check;
  MailConnectionOptions connection;
  bool transcript = false;
  bool json = false;
};

constexpr const char* kExamples = R"(
Examples:
  netro check-address jane@example.com 'Jane Doe <jane@example.com>'
  netro check-address --tlds com,org jane@example.com
  netro check-address --lookup jane@example.com
  netro check-address --smtp --from postmaster@example.org jane@example.com

Without options only the form is checked, by loose rules, and no network is needed. A server that
takes an address may still have no such mailbox, and one that refuses may dislike only the question.
Exit status 0 when all that was asked for is in order with every address.

--json prints one object: ok, and the list addresses: address, ok, syntax (ok, rule, text),
exchanger (with --lookup: ok, name, address, try_again, error) and server (with --smtp: ok, result, message),
which are null when nothing was asked.)";

void Declare(CLI::App& options, Options& values) {
  options.add_option("ADDRESS", values.addresses, "The addresses, written as in header fields")
      ->required();
  constexpr const char* kGroup = "Check";
  options.add_option("--tlds", values.tlds, "Accept only these top-level domains, as com,org,net")
      ->type_name("LIST")
      ->group(kGroup);
  options.add_flag("--lookup", values.check.lookUp, "Find the mail exchanger of the domain")
      ->group(kGroup);
  auto* server = options
                     .add_flag("--smtp", values.check.askServer,
                               "Ask the server whether it takes the address; nothing is sent")
                     ->group(kGroup);
  options.add_option("-f,--from", values.check.from, "The sender to ask as; else admin@ HELO name")
      ->type_name("ADDRESS")
      ->needs(server)
      ->group(kGroup);
  DeclareMailConnection(options, values.connection);
  options.add_flag("-v,--transcript", values.transcript, "Show what is said, on standard error")
      ->needs(server)
      ->group("Output");
  options.add_flag("--json", values.json, "Print one JSON object")->group("Output");
  options.footer(kExamples);
}

std::string TextOf(const AddressReport& report) {
  if (report.syntax.result != 0) {
    return Styled(Style::Red, "wrong") + ", " + OnOneLine(report.syntax.message) + " (rule " +
           std::to_string(report.syntax.result) + ")";
  }
  std::string text;
  if (report.lookup) {
    text =
        report.lookup->result == 0
            ? "; exchanger " + report.exchanger + ", " + report.exchangerAddress
            : "; " +
                  Styled(Style::Red, report.MayBeFoundLater() ? "exchanger not known now, try again"
                                                              : "no exchanger") +
                  ", " + OnOneLine(report.lookup->message);
  }
  if (report.server) {
    text += report.serverTakesIt ? "; the server takes it"
                                 : "; " + Styled(Style::Red, "not accepted") + ", " +
                                       OnOneLine(report.server->message);
  }
  return Styled(Style::Green, "well written") + text;
}

Json ToJson(const AddressReport& report) {
  Json object = {{"address", report.address},
                 {"ok", report.IsGood()},
                 {"syntax",
                  {{"ok", report.syntax.result == 0},
                   {"rule", report.syntax.result},
                   {"text", report.syntax.message}}},
                 {"exchanger", nullptr},
                 {"server", nullptr}};
  if (report.lookup) {
    object["exchanger"] = {
        {"ok", report.lookup->result == 0},
        {"name", report.exchanger},
        {"address", report.exchangerAddress},
        {"try_again", report.MayBeFoundLater()},
        {"error", {{"number", report.lookup->result}, {"text", report.lookup->message}}}};
  }
  if (report.server) {
    object["server"] = {{"ok", report.serverTakesIt},
                        {"result", report.server->result},
                        {"message", report.server->message}};
  }
  return object;
}

/// The session could not begin; its text names this computer, not the one that has no address.
bool IsWithoutHost(const AddressFinding& server) {
  constexpr std::int32_t kCannotConnect = 7000;
  const std::string text = GetMessageText(kCannotConnect);
  return server.result == SMTP_INITERROR &&
         server.message.starts_with(text.substr(0, text.find('\'')));
}

void Tell(const AddressReport& report, const Options& options) {
  if (!options.json) {
    Print(OnOneLine(report.address) + ": " + TextOf(report) + "\n");
    Flush();
  }
  const std::string seconds = SecondsText(options.connection.connection.timeout);
  if ((report.lookup && IsMailTimeout(report.lookup->result)) ||
      (report.server && IsMailTimeout(report.server->result))) {
    ShowMessage("the limit of each wait is " + seconds + " s, --timeout changes it");
  }
  if (report.server && IsWithoutHost(*report.server)) {
    ShowMessage("the name of the server or the proxy has no address");
  }
}

int Run(const Options& options) {
  SendMailCls mail;
  UseMailConnection(mail, options.connection);
  if (!options.check.from.empty() && !mail.CheckeMailAddressSyntax(options.check.from)) {
    throw UsageError("--from: \"" + options.check.from + "\" is no address");
  }
  mail.TLDs(options.tlds);
  MailDisplay display(options.transcript);
  mail.Events(&display);
  mail.ProtocolLevel(options.transcript ? pl_standard : pl_Off);

  Json reports = Json::array();
  bool good = true;
  for (const std::string& address : options.addresses) {
    const AddressReport report = [&] {
      const InterruptGuard guard(mail);
      return CheckAddress(mail, address, options.check);
    }();
    good = good && report.IsGood();
    Tell(report, options);
    reports.push_back(ToJson(report));
    if (report.IsCancelled()) break;
  }
  if (options.json) PrintObject({{"ok", good}, {"addresses", reports}});
  return good ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpCheckAddress(CLI::App& options) {
  const auto values = std::make_shared<Options>();
  Declare(options, *values);
  return [values] { return Run(*values); };
}

}  // namespace netro::tool
