// Connect (with the SOCKS prolog) → [TLS] → greeting → EHLO → [STARTTLS → TLS → EHLO] → [AUTH].
//
// With TLS, what was learnt before it is forgotten: somebody on the way may have said it. HELO is
// never said once protection or a login is wanted and EHLO refused.
#include "mail/SmtpOpening.h"

#include <netro/Localization.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "mail/MailExchanger.h"
#include "mail/SmtpLogin.h"
#include "platform/ErrorNumbers.h"
#include "socket/OpenConnection.h"
#include "socket/SocketErrors.h"
#include "support/Text.h"

namespace netro {
namespace {

enum Text : std::int32_t { kCanNotConnect = 7000, kProxyDone = 9000 };

constexpr std::int32_t kNoLimit = std::numeric_limits<std::int32_t>::max();

class Opening {
 public:
  Opening(SmtpDialogue& dialogue, const ProxyValues& proxy)
      : dialogue_(dialogue),
        settings_(dialogue.settings),
        options_(settings_.options),
        proxy_(proxy) {}

  bool Run(const std::string& address) {
    if (NeedsTls() && options_.tls == nullptr) {
      return dialogue_.FailText(SMTP_STEP_STARTTLS, kErrProtocolNotSupported,
                                "Security wants TLS, and there is no provider (Tls).");
    }
    if (SaysEhlo()) dialogue_.connection.AwaitLineEnds();
    if (!Connect(address) || !ProtectFirst() || !Greet()) return false;
    if (EndsAt(SMTP_STEP_CONNECT)) return true;
    if (!Hello()) return false;
    if (EndsAt(SMTP_STEP_HELO)) return true;
    return StartTls() && (EndsAt(SMTP_STEP_STARTTLS) || LogIn(dialogue_));
  }

 private:
  bool EndsAt(std::int32_t step) const { return options_.lastStep <= step; }
  bool NeedsTls() const {
    return options_.security == smtpTlsRequired || options_.security == smtpTlsFromFirstByte;
  }
  bool WantsStartTls() const {
    return options_.security == smtpTlsRequired ||
           (options_.security == smtpTlsWhenOffered && options_.tls != nullptr);
  }
  // Who cannot be told by the name and password of somebody else may be sent to in clear.
  bool MayStayInClear() const {
    return options_.security == smtpTlsWhenOffered && options_.user.empty();
  }
  bool SaysEhlo() const {
    return options_.extensions || options_.security != smtpPlain || !options_.user.empty();
  }

  bool Connect(const std::string& address);
  bool ConnectThroughProxy(ConnectionPlan plan);
  bool FailProxy(std::int32_t error);
  bool Refuse();

  bool ProtectFirst() {
    return options_.security != smtpTlsFromFirstByte || Protect(greetingDeadline_);
  }
  bool Greet();
  bool Hello();
  bool StartTls();
  bool Protect(TimePoint deadline);

  SmtpDialogue& dialogue_;
  const SMTPValues& settings_;
  const SMTPOptionValues& options_;
  const ProxyValues& proxy_;
  TimePoint greetingDeadline_;
};

bool Opening::Connect(const std::string& address) {
  ConnectionPlan plan;
  plan.host = settings_.receiverHostName;
  plan.port = settings_.port;
  if (!PlanProxy(proxy_, plan) || HasControl(plan.host)) return Refuse();
  const bool namesForProxy = plan.socks != SocksKind::None && plan.remoteDNS;
  if (!address.empty() && !namesForProxy) plan.host = address;
  plan.lookup = {NameServers(settings_), settings_.preference};
  dialogue_.result->lastBuffer.clear();
  if (plan.socks != SocksKind::None) return ConnectThroughProxy(std::move(plan));

  greetingDeadline_ = dialogue_.Deadline(SMTP_STEP_CONNECT);
  plan.wait = std::chrono::seconds(kNoLimit);
  plan.limit = greetingDeadline_;
  const std::int32_t error = dialogue_.connection.Open(plan);
  if (error == 0) return true;
  if (dialogue_.connection.Failure() != 0) return dialogue_.FailSocket(error);
  return IsWaitError(error) ? dialogue_.FailWait(SMTP_STEP_CONNECT, error) : Refuse();
}

bool Opening::ConnectThroughProxy(ConnectionPlan plan) {
  plan.wait = std::chrono::seconds(settings_.proxyTimeout);
  plan.limit = dialogue_.TimeOn(plan.wait);
  std::int32_t error = dialogue_.connection.Open(plan);
  if (error != 0 && dialogue_.connection.Failure() != 0) return dialogue_.FailSocket(error);
  if (error != 0 && !IsWaitError(error)) return Refuse();
  if (error == 0) error = dialogue_.connection.OpenTunnel(plan);
  if (error != 0) return FailProxy(error);
  dialogue_.transcript.Add(
      GetMessageText(kProxyDone, {plan.proxyHost, std::to_string(plan.proxyPort)}));
  greetingDeadline_ = dialogue_.Deadline(SMTP_STEP_CONNECT);
  return true;
}

bool Opening::FailProxy(std::int32_t error) {
  const bool timedOut = error == kErrTimedOut;
  dialogue_.transcript.Add(GetMessageText(timedOut ? kErrTimedOut : kErrCancelled));
  const bool refused = error >= kErrSocksRefused && error <= kErrSocksMethod;
  const std::string text =
      refused ? GetMessageText(error, {proxy_.url, std::to_string(proxy_.port)})
              : SocketErrorText(error);
  dialogue_.result->lastBuffer = text;
  if (error == kErrCancelled) return dialogue_.FailWait(SMTP_STEP_SOCKS, error);
  return dialogue_.Fail(SMTP_STEP_SOCKS, error, text);
}

// The connection could not even be begun. The name in the text is the sender's.
bool Opening::Refuse() {
  const std::string text = GetMessageText(kCanNotConnect, {settings_.senderHostName});
  dialogue_.result->lastBuffer = text;
  return dialogue_.Fail(SMTP_STEP_INITSOCKET, SMTP_INITERROR, text, text);
}

bool Opening::Greet() {
  if (!dialogue_.Await(SMTP_STEP_CONNECT, greetingDeadline_)) return false;
  dialogue_.greeting = dialogue_.ReplyText();
  return true;
}

bool Opening::Hello() {
  dialogue_.extensions = SmtpExtensions();
  if (SaysEhlo()) {
    const std::int32_t code = dialogue_.Ask(SMTP_STEP_HELO, "EHLO " + settings_.senderHostName);
    if (code == 0) return false;
    if (dialogue_.Accept(SMTP_STEP_HELO, code)) {
      dialogue_.extensions = ParseExtensions(dialogue_.ReplyText());
      return true;
    }
    const bool mayFallBack = !NeedsTls() && options_.user.empty();
    if (code / 100 != 5 || !mayFallBack) return dialogue_.FailReply(SMTP_STEP_HELO, code);
  }
  return dialogue_.Command(SMTP_STEP_HELO, "HELO " + settings_.senderHostName);
}

bool Opening::StartTls() {
  constexpr std::int32_t kReady = 220;
  if (!WantsStartTls() || dialogue_.connection.IsProtected()) return true;
  if (!dialogue_.extensions.startTls) {
    return MayStayInClear() ||
           dialogue_.FailText(SMTP_STEP_STARTTLS, kErrProtocolNotSupported,
                              "The server does not offer STARTTLS, which Security wants.");
  }
  const std::int32_t code = dialogue_.Ask(SMTP_STEP_STARTTLS, "STARTTLS");
  if (code == 0) return false;
  if (code != kReady)
    return MayStayInClear() || dialogue_.FailReply(SMTP_STEP_STARTTLS, code);
  return Protect(dialogue_.Deadline(SMTP_STEP_STARTTLS)) && Hello();
}

bool Opening::Protect(TimePoint deadline) {
  SmtpConnection& connection = dialogue_.connection;
  const std::int32_t error =
      connection.Protect(settings_.receiverHostName, options_.tls, deadline);
  if (error == 0) return true;
  if (IsWaitError(error)) return dialogue_.FailWait(SMTP_STEP_STARTTLS, error);
  return dialogue_.FailText(SMTP_STEP_STARTTLS, error, connection.TlsErrorText());
}

}  // namespace

bool OpenSmtp(SmtpDialogue& dialogue, const ProxyValues& proxy, const std::string& address) {
  return Opening(dialogue, proxy).Run(address);
}

}  // namespace netro
