// The options about the way to a mail server.

#include "mail/MailConnection.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>

#include "terminal/Command.h"
#include "terminal/HostAddress.h"
#include "terminal/HostAndPort.h"
#include "terminal/OptionValues.h"
#include "terminal/SecondsText.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kLongestTimeout = 1'000'000;
constexpr std::int32_t kMessageSeconds = 600;

std::int32_t ReadServer(const MailConnectionOptions& options, std::string& host) {
  constexpr std::int32_t kLargest = 65535;
  if (options.port < 0 || options.port > kLargest) {
    throw UsageError("--port: \"" + std::to_string(options.port) + "\" is no port number");
  }
  std::int32_t port = 0;
  if (!options.server.empty()) {
    ReadHostAndPort("--server", options.server, host, port);
    if (!UsualIPv6(host) && !IsHostName(host)) {
      throw UsageError("--server: \"" + host + "\" is no host name and no address");
    }
  }
  if (port != 0 && options.port != 0) throw UsageError("--port: --server names a port already");
  return std::max(port, options.port);
}

void CheckHelo(const std::string& name) {
  const bool good =
      std::ranges::all_of(name, [](char c) { return c > ' ' && c <= '~' && c != '<' && c != '>'; });
  if (!good) throw UsageError("--helo: \"" + name + "\" cannot be said in HELO");
}

/// An entry for every step that waits. Without --timeout the message has the ten minutes that it
/// has in the library.
std::string TimeOutTable(double seconds) {
  constexpr std::int32_t kSteps[] = {SMTP_STEP_DNS,      SMTP_STEP_CONNECT,  SMTP_STEP_HELO,
                                     SMTP_STEP_STARTTLS, SMTP_STEP_AUTH,     SMTP_STEP_MAILFROM,
                                     SMTP_STEP_RCPTTO,   SMTP_STEP_DATA,     SMTP_STEP_SENDDATA,
                                     SMTP_STEP_QUIT};
  std::string table;
  for (const std::int32_t step : kSteps) {
    const bool isLong = step == SMTP_STEP_SENDDATA && seconds == ConnectionOptions().timeout;
    table += (table.empty() ? "" : ",") + std::to_string(step) + ":" +
             SecondsText(isLong ? kMessageSeconds : seconds);
  }
  return table;
}

}  // namespace

void DeclareMailConnection(CLI::App& options, MailConnectionOptions& values) {
  constexpr const char* kGroup = "Connection";
  options
      .add_option("-s,--server", values.server,
                  "The mail server; else the mail exchanger of each recipient's\n"
                  "domain, which DNS tells")
      ->type_name("HOST[:PORT]")
      ->group(kGroup);
  options
      .add_option("--port", values.port, "Port of the server or the exchangers; 25 if not given")
      ->type_name("PORT")
      ->group(kGroup);
  options.add_option("--helo", values.helo, "The name to say in HELO; else this computer's")
      ->type_name("NAME")
      ->group(kGroup);
  DeclareConnectionOptions(options, values.connection, "Connect through",
                           "Limit of connecting, and of the wait for each reply");
  options
      .add_option("--total", values.total,
                  "Limit of each session, however long its waits are; 3600 if not\n"
                  "given, 0 is none")
      ->type_name("SECONDS")
      ->group(kGroup);
  DeclareMailLogin(options, values.login);
}

void UseMailConnection(SendMailCls& mail, const MailConnectionOptions& options) {
  std::string host;
  const std::int32_t port = ReadServer(options, host);
  if (port != 0) mail.Port(port);
  UseProxy(mail, ReadSocksProxy(options.connection.proxy));
  UseMailLogin(mail, options.login, port != 0);
  mail.ReceiverHostName(host);
  mail.LocalHosts(true);
  CheckHelo(options.helo);
  mail.SenderHostName(options.helo);
  CheckLimit("--timeout", options.connection.timeout, kLongestTimeout);
  mail.SMTPTimeOutString(TimeOutTable(options.connection.timeout));
  mail.SMTPProxyTimeout(static_cast<std::int32_t>(std::ceil(options.connection.timeout)));
  CheckLimit("--total", options.total, kLongestTimeout, NoLimit::Zero);
  mail.TotalTimeout(TimeOf(options.total));
  mail.AddressPreference(options.connection.preference);
  if (!options.connection.dns.empty()) {  // an empty list would not be the system's
    mail.DNSURL(options.connection.dns);
  }
}

bool IsMailTimeout(std::int32_t result) {
  constexpr std::int32_t kTimedOut = 10002;
  return result == SMTP_TIMEOUT || result == kTimedOut;
}

}  // namespace netro::tool
