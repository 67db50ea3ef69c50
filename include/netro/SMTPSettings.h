// The settings of a mail delivery that SMTPCls and SendMailCls share.
//
// Thread: as the class that has them.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/Export.h>
#include <netro/ProxySettings.h>
#include <netro/ProxyTypes.h>
#include <netro/SMTPOptions.h>
#include <netro/Types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace netro {

/// What a session's transcript holds.
enum ProtocolLevelEnum : std::int32_t {
  pl_Off = 0,               // nothing
  pl_standard = 1,          // commands and replies; the message as one line with its size
  pl_WithCompleteData = 2,  // and the whole message
  pl_OnlyErrors = 3,        // as standard, but only of a session that fails
};

/// The settings as they are kept.
struct SMTPValues {
  std::string senderHostName;
  std::string receiverHostName;
  std::int32_t port = 25;
  ProtocolLevelEnum protocolLevel = pl_Off;
  std::string success;
  std::string timeOuts;
  std::optional<std::string> dnsURL;  // none: the system's servers
  AddressPreferenceEnum preference = preferIPv4;
  std::string dnsServer;
  std::int32_t proxyTimeout = 30;
  std::chrono::milliseconds totalTimeout{0};
  bool simulation = false;
  SMTPOptionValues options;

  bool operator==(const SMTPValues&) const = default;
};

/// A session works on what the settings are when it begins.
class NETRO_EXPORT SMTPSettings : public ProxySettings<SMTPProxyTypeEnum, 1080>,
                                  public SMTPOptions {
 public:
  /// The name given in HELO, and the label of sent lines in the transcript. Empty: this computer's
  /// name.
  const std::string& SenderHostName() const { return smtp_.senderHostName; }
  void SenderHostName(std::string value) { smtp_.senderHostName = std::move(value); }
  /// The mail server. Empty: the mail exchanger of the recipient's domain (RFC 5321, section 5), or
  /// the domain itself when it has an address and no exchanger.
  const std::string& ReceiverHostName() const { return smtp_.receiverHostName; }
  void ReceiverHostName(std::string value) { smtp_.receiverHostName = std::move(value); }
  /// Of the server, 1 to 65,535.
  std::int32_t Port() const { return smtp_.port; }
  void Port(std::int32_t value) { smtp_.port = value; }
  /// True: a session stops after RCPT TO with QUIT; nothing is delivered.
  bool Simulation() const { return smtp_.simulation; }
  void Simulation(bool value) { smtp_.simulation = value; }
  /// How much of a session the transcript holds.
  ProtocolLevelEnum ProtocolLevel() const { return smtp_.protocolLevel; }
  void ProtocolLevel(ProtocolLevelEnum value) { smtp_.protocolLevel = value; }
  /// The replies that let a session go on, as "step:code" separated by commas, without blanks.
  const std::string& SMTPSuccess() const { return smtp_.success; }
  void SMTPSuccess(std::string value) { smtp_.success = std::move(value); }
  /// Seconds to wait for the reply of a step, as "step:seconds" separated by commas, without
  /// blanks; 60 for a step that is not listed.
  const std::string& SMTPTimeOutString() const { return smtp_.timeOuts; }
  void SMTPTimeOutString(std::string value) { smtp_.timeOuts = std::move(value); }
  /// The DNS servers to ask for exchangers and addresses, as "host[:port]" separated by commas.
  /// Until it is set, the system's servers, see SocketCls::DNSURL.
  const std::string& DNSURL() const;
  void DNSURL(std::string value) { smtp_.dnsURL = std::move(value); }
  /// Which address of a host is used, see AddressPreference.h.
  AddressPreferenceEnum AddressPreference() const { return smtp_.preference; }
  void AddressPreference(AddressPreferenceEnum value) { smtp_.preference = value; }
  /// One DNS server, asked at port 53 when DNSURL is empty.
  const std::string& DNSServer() const { return smtp_.dnsServer; }
  void DNSServer(std::string value) { smtp_.dnsServer = std::move(value); }
  /// Seconds to wait for the connection to the proxy, and for each of its replies.
  std::int32_t SMTPProxyTimeout() const { return smtp_.proxyTimeout; }
  void SMTPProxyTimeout(std::int32_t value) { smtp_.proxyTimeout = value; }

  /// Seconds, or as 500ms fractions of them (read, it is rounded up), for all that a call does in
  /// one session, from connecting to the reply to QUIT; it ends as a time-out of the step that it
  /// has come to. 0 or below: no limit but those of each wait.
  std::int32_t TotalTimeout() const { return WholeSeconds(smtp_.totalTimeout); }
  void TotalTimeout(std::int32_t value) { smtp_.totalTimeout = std::chrono::seconds(value); }
  void TotalTimeout(std::chrono::milliseconds value) { smtp_.totalTimeout = value; }

 protected:
  SMTPSettings();
  ~SMTPSettings() = default;

  SMTPValues Values() const;

 private:
  SMTPValues smtp_;
};

}  // namespace netro
