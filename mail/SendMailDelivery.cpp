// Delivering a composed message: who is to get it, by which sessions, and what becomes of them.
#include <netro/Localization.h>

#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "mail/AddressSyntax.h"
#include "mail/MailAddress.h"
#include "mail/MailCall.h"
#include "mail/MailDelivery.h"
#include "mail/MailOutcome.h"
#include "mail/MimeMessage.h"
#include "mail/SmtpLogin.h"
#include "support/OnException.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

// Of messages.
enum Text : std::int32_t {
  kTextNoSender = 4000,
  kTextNoRecipient = 4001,
  kTextNoMessage = 4003,
  kTextBadRecipient = 4007,
  kTextBadSender = 4008,
  kTextSuccess = 7003,
};

// The same mailbox, as far as its name tells (RFC 5321, section 2.4).
std::string MailboxKey(const MailAddress& found) { return found.local + '@' + ToLower(found.host); }

std::string DomainOf(const std::string& address) { return ExtractAddress(address).host; }

// Those that wait, by the server that they go to, in the order in which these come up first.
using Group = std::pair<std::string, std::vector<std::size_t>>;
std::vector<Group> Groups(const std::vector<RecipientOutcome>& outcomes, bool namedServer) {
  std::vector<Group> groups;
  std::unordered_map<std::string, std::size_t> places;
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    if (outcomes[i].ResultClass != kPending) continue;
    const std::string domain = namedServer ? std::string() : DomainOf(outcomes[i].Address);
    const auto [place, isNew] = places.emplace(ToLower(domain), groups.size());
    if (isNew) groups.emplace_back(domain, std::vector<std::size_t>());
    groups[place->second].second.push_back(i);
  }
  return groups;
}

}  // namespace

bool SendMailCls::SendMail() {
  return MailCall::Run(*this, [](MailCall& call) { return call.Deliver(); }, &outcomes_);
}

void SendMailCls::EndSession() {
  MailCall::Run(*this, [](MailCall& call) { return call.EndSession(); });
}

bool MailCall::EndSession() {
  const auto kept = std::move(owner_.kept_);
  return kept == nullptr || (kept->session->Resume(mark_, settings_) && kept->session->Quit());
}

// False when there is nobody to ask for; Result tells why.
bool MailCall::MayBegin(std::vector<RecipientOutcome>& outcomes) {
  if (owner_.message_->KindOfMessage() == MimeMessage::Kind::None)
    return Fail(kTextNoMessage, GetMessageText(kTextNoMessage));
  outcomes = Recipients();
  if (outcomes.empty()) return Fail(kTextNoRecipient, GetMessageText(kTextNoRecipient));
  const std::string fault = SenderFault();
  if (fault.empty()) return true;
  for (RecipientOutcome& outcome : outcomes) RefuseOne(outcome, fault);
  return Fail(SMTP_INITERROR, fault);
}

bool MailCall::Deliver() {
  std::vector<RecipientOutcome> outcomes;
  const OnException tell([&] {
    if (call_->alive) owner_.outcomes_ = std::move(outcomes);
  });
  if (!MayBegin(outcomes)) {
    owner_.outcomes_ = std::move(outcomes);
    return false;
  }
  DeliverAll(outcomes);
  return Publish(std::move(outcomes));
}

HostRule MailCall::Hosts() const {
  const bool any = owner_.localHosts_ && !settings_.receiverHostName.empty();
  return any ? HostRule::Any : HostRule::Dotted;
}

// Those with a bad address are done with, the others wait.
std::vector<RecipientOutcome> MailCall::Recipients() const {
  const MimeMessage::Envelope& envelope = owner_.message_->Addresses();
  const std::pair<RecipientTypeEnum, const std::string&> lists[] = {
      {RecipientStandard, envelope.to},
      {RecipientCarbonCopy, envelope.cc},
      {RecipientBlindCarbonCopy, envelope.bcc}};
  std::vector<RecipientOutcome> outcomes;
  std::unordered_set<std::string> known;
  for (const auto& [type, list] : lists) {
    for (std::string& element : SplitAddressList(list)) {
      const bool valid = CheckAddressSyntax(element, owner_.tlds_, Hosts()) == 0;
      MailAddress found = ExtractAddress(element);
      if (!known.insert(valid ? MailboxKey(found) : element).second) continue;
      RecipientOutcome& outcome = outcomes.emplace_back();
      outcome.Address = std::move(found.address.empty() ? element : found.address);
      outcome.Type = type;
      outcome.Result = SMTP_CANCELED;
      outcome.ResultMessage = SocketErrorText(kErrCancelled);
      outcome.ResultClass = kPending;
      if (!valid) RefuseOne(outcome, GetMessageText(kTextBadRecipient, {outcome.Address}));
    }
  }
  return outcomes;
}

std::string MailCall::SenderFault() const {
  if (owner_.nullSender_) return {};
  const std::string& from = owner_.message_->Addresses().from;
  if (Trim(from).empty()) return GetMessageText(kTextNoSender);
  if (CheckAddressSyntax(from, owner_.tlds_, Hosts()) == 0) return {};
  const std::string address = ExtractAddress(from).address;
  return GetMessageText(kTextBadSender, {address.empty() ? from : address});
}

void MailCall::DeliverAll(std::vector<RecipientOutcome>& outcomes) {
  const std::unique_ptr<SmtpData> message = owner_.message_->DataToSend(DotRule::AllDots);
  DeliveryTask task{Order(Sender(), {}), *message, mark_, Events(), owner_.keepSession_,
                    std::move(owner_.kept_)};
  CompleteSettings(task.order.settings);
  RefuseWrong(outcomes, task.order);
  for (RecipientOutcome& outcome : outcomes) {
    if (outcome.ResultClass == kPending && message->Error() != 0) CannotRead(outcome, *message);
  }
  std::vector<MailRecipient> recipients(outcomes.size());
  const auto conclude = [&] {
    for (std::size_t i = 0; i < outcomes.size(); ++i) Conclude(outcomes[i], recipients[i]);
  };
  const OnException judge(conclude);
  for (const auto& [domain, places] : Groups(outcomes, !settings_.receiverHostName.empty())) {
    if (mark_.Cancelled()) break;
    std::vector<MailRecipient*> group;
    for (const std::size_t place : places) {
      recipients[place].smtp.address = outcomes[place].Address;
      group.push_back(&recipients[place]);
    }
    MailDelivery(task, domain, std::move(group)).Run();
  }
  conclude();
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    if (!outcomes[i].Accepted)
      Note(outcomes[i].Result, FailureText(outcomes[i], recipients[i].smtp.dnsError));
  }
  if (call_->alive) owner_.kept_ = std::move(task.kept);
}

std::string MailCall::Sender() const {
  return owner_.nullSender_ ? std::string()
                            : ExtractAddress(owner_.message_->Addresses().from).address;
}

// What could not be said to a server.
void MailCall::RefuseWrong(std::vector<RecipientOutcome>& outcomes, const SmtpOrder& order) const {
  const SMTPValues& settings = order.settings;
  const std::string credentials = CredentialsFault(settings.options);
  for (RecipientOutcome& outcome : outcomes) {
    if (outcome.ResultClass != kPending) continue;
    const std::string& address = outcome.Address;
    const std::string* const wrong = BreaksCommand(order.from, "<>")                ? &order.from
                                     : BreaksCommand(settings.senderHostName, " \t<>")
                                         ? &settings.senderHostName
                                     : BreaksCommand(address, "<>") ? &address
                                                                    : nullptr;
    if (wrong != nullptr) {
      RefuseOne(outcome, GetMessageText(kTextBadRecipient, {Printable(*wrong)}));
    } else if (!credentials.empty()) {
      RefuseOne(outcome, credentials);
      outcome.ResultClass = kOtherSmtp;
    } else if (settings.receiverHostName.empty() && !IsAscii(DomainOf(address))) {
      RefuseOne(outcome, "The domain of " + address +
                             " has characters beyond ASCII. Write it in its ASCII form (xn--...), "
                             "or name the server.");
    }
  }
}

void MailCall::Note(std::int32_t failure, const std::string& text) {
  if (failure_ != 0) return;
  failure_ = failure;
  failureText_ = text;
}

bool MailCall::Publish(std::vector<RecipientOutcome> outcomes) {
  if (!call_->alive) return false;
  owner_.outcomes_ = std::move(outcomes);
  if (failure_ != 0) return Fail(failure_, std::move(failureText_));
  owner_.SetResult(0, GetMessageText(kTextSuccess));
  return true;
}

}  // namespace netro
