#include "mail/SmtpParameters.h"

#include <cstdint>
#include <string_view>
#include <utility>

#include "support/Utf8.h"

namespace netro {
namespace {

std::string NotifyNames(std::int32_t notify) {
  if (notify & notifyNever) return "NEVER";
  const std::pair<std::int32_t, std::string_view> kNames[] = {
      {notifySuccess, "SUCCESS"}, {notifyFailure, "FAILURE"}, {notifyDelay, "DELAY"}};
  std::string names;
  for (const auto& [flag, name] : kNames) {
    if (notify & flag) names.append(names.empty() ? "" : ",").append(name);
  }
  return names;
}

}  // namespace

std::string MailCommand(const std::string& from, const SmtpFacts& message, bool foreignRecipient,
                        const SmtpExtensions& offered, const SMTPOptionValues& options) {
  std::string command = "MAIL FROM:<" + from + '>';
  if (offered.size && message.size > 0) command += " SIZE=" + std::to_string(message.size);
  if (offered.eightBitMime && message.has8Bit) command += " BODY=8BITMIME";
  const bool foreign = foreignRecipient || !IsAscii(from) || message.utf8Header;
  if (offered.smtpUtf8 && foreign) command += " SMTPUTF8";
  if (!offered.dsn) return command;
  if (options.returned == returnFull) command += " RET=FULL";
  if (options.returned == returnHeaders) command += " RET=HDRS";
  if (!options.envelopeID.empty()) command += " ENVID=" + XText(options.envelopeID);
  return command;
}

std::string RcptCommand(const std::string& address, const SmtpExtensions& offered,
                        const SMTPOptionValues& options) {
  const std::string command = "RCPT TO:<" + address + '>';
  const std::string notify = NotifyNames(options.notify);
  return !offered.dsn || notify.empty() ? command : command + " NOTIFY=" + notify;
}

}  // namespace netro
