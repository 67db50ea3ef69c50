#include "mail/MailDelivery.h"

#include <netro/Localization.h>

#include <algorithm>
#include <utility>

#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "support/OnException.h"
#include "support/Text.h"

namespace netro {
namespace {

using State = SmtpRecipient::State;

// RFC 5321, section 4.5.3.2.7: a server waits five minutes for the next command.
constexpr std::chrono::seconds kKeptFor{240};
// So many recipients any server's replies to commands sent together have room for.
constexpr std::size_t kMostTogether = 1000;
constexpr std::int32_t kServiceClosing = 421;
constexpr std::int32_t kTextSuccess = 7003;

// The settings that an open session depends on; the others are those of a message.
SMTPValues SessionSettings(SMTPValues settings) {
  settings.protocolLevel = pl_Off;
  settings.options.notify = notifyAsUsual;
  settings.options.returned = returnAsUsual;
  settings.options.envelopeID.clear();
  settings.options.chunking = settings.options.strictLines = false;
  return settings;
}

// Of a refusal that another exchanger may not share.
bool IsTemporary(const SmtpRecipient& recipient) {
  return recipient.state == State::Refused && recipient.stepID == SMTP_STEP_RCPTTO &&
         recipient.result / 100 == 4;
}

}  // namespace

bool KeptSession::Fits(const std::string& wantedRoute, const SmtpOrder& order) const {
  return route == wantedRoute && proxy == order.proxy && Now() - since < kKeptFor &&
         SessionSettings(settings) == SessionSettings(order.settings);
}

MailDelivery::MailDelivery(DeliveryTask& task, std::string domain,
                           std::vector<MailRecipient*> recipients)
    : task_(task),
      domain_(std::move(domain)),
      recipients_(std::move(recipients)),
      settings_(task.order.settings),
      route_(settings_.receiverHostName.empty() ? '@' + ToLower(domain_)
                                                : settings_.receiverHostName) {}

void MailDelivery::Run() {
  if (TryKept()) return;
  const MailRoute route = FindRoute(task_.order, domain_, task_.mark, task_.events);
  recipients_.front()->protocol += route.lookup->protocol;
  if (route.hosts.empty()) {
    for (MailRecipient* recipient : recipients_) {
      NoteState(recipient->smtp, State::Waiting, route.lookup->stepID, route.lookup->result,
                route.lookup->resultMessage);
      recipient->smtp.dnsError = route.lookup->dnsError;
    }
    return;
  }
  TryHosts(route.hosts);
  if (unprotected_.empty() || Waiting().empty()) return;
  settings_.options.security = smtpPlain;
  TryHosts(std::exchange(unprotected_, {}));
}

void MailDelivery::TryHosts(const std::vector<std::string>& hosts) {
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    if (Waiting().empty() || task_.mark.Cancelled()) return;
    TryHost(hosts[i], i + 1 == hosts.size());
  }
}

// The addresses of a host race for the connection. When the session fails that one of them has
// opened, the others are tried by themselves.
void MailDelivery::TryHost(const std::string& host, bool isLast) {
  std::string used;
  for (std::size_t before = 0; before != Waiting().size();) {  // some may have been refused
    before = Waiting().size();
    used = before == 0 || task_.mark.Cancelled() ? std::string() : Try(host, {});
  }
  if (!used.empty() && !Waiting().empty() && !task_.mark.Cancelled()) {
    for (const std::string& address : AddressesOf(host, task_.order, task_.mark)) {
      if (address == used) continue;
      if (Waiting().empty() || task_.mark.Cancelled()) break;
      Try(host, address);
    }
  }
  if (isLast) return;
  for (MailRecipient* recipient : recipients_) {
    if (IsTemporary(recipient->smtp)) recipient->smtp.state = State::Waiting;
  }
}

std::vector<MailRecipient*> MailDelivery::Waiting() const {
  std::vector<MailRecipient*> waiting;
  for (MailRecipient* recipient : recipients_) {
    if (recipient->smtp.state == State::Waiting) waiting.push_back(recipient);
  }
  return waiting;
}

// One session. Returns the address that it was connected to; empty when it was to none.
std::string MailDelivery::Try(const std::string& host, const std::string& address) {
  SMTPValues settings = settings_;
  settings.receiverHostName = host;
  auto session =
      std::make_unique<SmtpSession>(settings, task_.order.proxy, task_.order.waits,
                                    std::make_shared<SmtpResult>(), task_.events);
  const auto waiting = Waiting();
  const bool good = [&] {
    const OnException note([&] { Note(*session, host, waiting); });
    return session->Open(task_.mark, address) && Use(*session, waiting);
  }();
  const std::string used = session->Dialogue().connection.Address();
  Note(*session, host, waiting);
  const bool isNew = std::ranges::find(unprotected_, host) == unprotected_.end();
  if (!good && isNew && MayTryInClear(settings, session->Result())) unprotected_.push_back(host);
  if (good) Close(std::move(session), host, waiting);
  return used;
}

// True when the session of the call before has taken everything.
bool MailDelivery::TryKept() {
  auto kept = std::move(task_.kept);
  if (kept == nullptr) return false;
  const auto waiting = Waiting();
  if (!kept->session->Resume(task_.mark, settings_)) return false;
  if (!kept->Fits(route_, task_.order)) {
    kept->session->Quit();
    return false;
  }
  SmtpSession& session = *kept->session;
  const bool good = [&] {
    const OnException note([&] { Note(session, kept->host, waiting); });
    return Use(session, waiting);
  }();
  const SmtpResult& result = session.Result();
  const bool begun = Waiting().size() < waiting.size();
  const bool wasDead = !good && !begun && !task_.mark.Cancelled() &&
                       (result.stepID == SMTP_STEP_SOCKETERROR || result.result == kServiceClosing);
  if (wasDead) return false;
  Note(session, kept->host, waiting);
  if (good) Close(std::move(kept->session), kept->host, waiting);
  return Waiting().empty() || task_.mark.Cancelled();
}

// Transactions until nobody waits; recipients that were too many for one go into the next.
bool MailDelivery::Use(SmtpSession& session, const std::vector<MailRecipient*>& waiting) {
  std::vector<SmtpRecipient*> left;
  for (MailRecipient* recipient : waiting) left.push_back(&recipient->smtp);
  while (!left.empty()) {
    const std::size_t count = std::min(left.size(), kMostTogether);
    const std::vector<SmtpRecipient*> now(left.begin(),
                                          left.begin() + static_cast<std::ptrdiff_t>(count));
    if (!session.Deliver(task_.order.from, task_.message, now)) return false;
    std::vector<SmtpRecipient*> next;
    for (SmtpRecipient* recipient : now) {
      if (!std::exchange(recipient->tooMany, false)) continue;
      recipient->state = State::Waiting;
      next.push_back(recipient);
    }
    next.insert(next.end(), left.begin() + static_cast<std::ptrdiff_t>(count), left.end());
    left = std::move(next);
  }
  return true;
}

// A server that has taken the message is responsible for it (RFC 5321, section 4.2.5), whatever
// becomes of QUIT.
void MailDelivery::Close(std::unique_ptr<SmtpSession> session, const std::string& host,
                         const std::vector<MailRecipient*>& used) {
  if (task_.keep && !settings_.simulation && !task_.mark.Cancelled()) {
    session->Rest();
    task_.kept = std::make_unique<KeptSession>(KeptSession{
        route_, host, task_.order.settings, task_.order.proxy, std::move(session), Now()});
    return;
  }
  const std::size_t before = session->Result().protocol.size();
  const OnException keep([&] {
    used.front()->protocol += session->Result().protocol.substr(before);
  });
  const bool quit = session->Quit();
  const SmtpResult& result = session->Result();
  used.front()->protocol += result.protocol.substr(before);
  for (MailRecipient* recipient : used) {
    if (quit || recipient->smtp.state != State::Delivered) continue;
    recipient->smtp.stepID = result.stepID;
    recipient->smtp.result = result.result;
    recipient->smtp.message = result.resultMessage;
  }
}

// What the session has left for those that were in it. Who still waits has its failure; but that
// nothing could be connected to says less than what a server said before.
void MailDelivery::Note(SmtpSession& session, const std::string& host,
                        const std::vector<MailRecipient*>& waiting) {
  const SmtpResult& result = session.Result();
  const SmtpConnection& connection = session.Dialogue().connection;
  waiting.front()->protocol += result.protocol;
  for (MailRecipient* recipient : waiting) {
    SmtpRecipient& smtp = recipient->smtp;
    if (smtp.state == State::Delivered) {
      smtp.stepID = SMTP_STEP_DONE;
      smtp.result = 0;
      smtp.message = GetMessageText(kTextSuccess);
    }
    const bool undecided = smtp.state == State::Waiting;
    DeliveryTry one{host,        connection.Address(), connection.IsProtected(),
                    smtp.stepID, smtp.result,          smtp.message};
    if (undecided) {
      one.StepID = result.stepID;
      one.Result = result.result;
      one.ResultMessage = result.resultMessage;
    }
    const bool replaces =
        !one.Address.empty() || !recipient->connected || result.result == SMTP_CANCELED;
    if (undecided && replaces)
      NoteState(smtp, State::Waiting, one.StepID, one.Result, one.ResultMessage);
    recipient->connected |= !one.Address.empty();
    recipient->tries.push_back(std::move(one));
  }
}

}  // namespace netro
