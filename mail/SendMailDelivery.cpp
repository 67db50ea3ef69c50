// Delivering a composed message: a session for each recipient, and what becomes of them.
#include <netro/Localization.h>

#include <string_view>
#include <unordered_set>
#include <utility>

#include "dns/DnsResult.h"
#include "mail/AddressSyntax.h"
#include "mail/MailAddress.h"
#include "mail/MailCall.h"
#include "mail/MimeMessage.h"
#include "mail/SmtpTables.h"
#include "mail/SmtpTranscript.h"
#include "support/OnException.h"
#include "support/Text.h"

namespace netro {
namespace {

// Of messages.
enum Text : std::int32_t {
  kFatalDns = 3010,
  kFatalSmtp = 3011,
  kInvalidAddress = 3013,
  kTemporaryDns = 3014,
  kTemporarySmtp = 3015,
  kOtherDns = 3016,
  kOtherSmtp = 3017,
  kPending = 3018,
  kMayHaveArrived = 3019,
  kTextNoSender = 4000,
  kTextNoRecipient = 4001,
  kTextDnsError = 4002,
  kTextNoMessage = 4003,
  kTextSmtpError = 4005,
  kTextBadRecipient = 4007,
  kTextBadSender = 4008,
  kTextFatalFailures = 6007,
  kTextTemporaryFailures = 6008,
  kTextSuccess = 7003,
};

// Where the tables say nothing, the reply's first digit does (RFC 5321, section 4.2.1).
std::int32_t ClassOfReply(std::int32_t code) {
  const std::int32_t digit = code / 100;
  return digit == 5 ? kFatalSmtp : digit == 4 ? kTemporarySmtp : kOtherSmtp;
}

bool IsLookupFailure(const SmtpResult& session) { return session.stepID == SMTP_STEP_AUTODNS; }

std::int32_t ClassOf(const SmtpResult& session) {
  if (session.stepID == SMTP_STEP_PRECHECK) return kInvalidAddress;
  if (session.endUnknown) return kMayHaveArrived;
  if (session.result == SMTP_CANCELED) return kPending;
  const bool dns = IsLookupFailure(session);
  if (dns && session.dnsError == kDnsNullMx) return kFatalDns;
  const std::int32_t step = dns ? SMTP_STEP_DNS : session.stepID;
  const std::int32_t code = dns ? session.dnsError : session.result;
  if (HasStepEntry(GetMessageText(kTextFatalFailures), step, code))
    return dns ? kFatalDns : kFatalSmtp;
  if (HasStepEntry(GetMessageText(kTextTemporaryFailures), step, code))
    return dns ? kTemporaryDns : kTemporarySmtp;
  return dns ? kOtherDns : ClassOfReply(code);
}

// The same mailbox, as far as its name tells (RFC 5321, section 2.4).
std::string MailboxKey(const MailAddress& found) { return found.local + '@' + ToLower(found.host); }

void RefuseOne(RecipientOutcome& outcome, std::string text) {
  outcome.StepID = SMTP_STEP_PRECHECK;
  outcome.Result = SMTP_INITERROR;
  outcome.ResultMessage = std::move(text);
  outcome.ResultClass = kInvalidAddress;
}

}  // namespace

bool SendMailCls::SendMail() {
  return MailCall::Run(*this, [](MailCall& call) { return call.Deliver(); });
}

bool MailCall::Deliver() {
  owner_.outcomes_.clear();
  if (owner_.message_->KindOfMessage() == MimeMessage::Kind::None)
    return Fail(kTextNoMessage, GetMessageText(kTextNoMessage));
  std::vector<RecipientOutcome> outcomes = Recipients();
  const OnException tell([&] {
    if (call_->alive) owner_.outcomes_ = std::move(outcomes);
  });
  if (outcomes.empty()) return Fail(kTextNoRecipient, GetMessageText(kTextNoRecipient));
  const std::string fault = SenderFault();
  if (fault.empty()) {
    DeliverAll(outcomes);
  } else {
    for (RecipientOutcome& outcome : outcomes) RefuseOne(outcome, fault);
    Note(SMTP_INITERROR, fault);
  }
  return Publish(std::move(outcomes));
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
      const bool valid = CheckAddressSyntax(element, owner_.tlds_) == 0;
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
  const std::string& from = owner_.message_->Addresses().from;
  if (Trim(from).empty()) return GetMessageText(kTextNoSender);
  if (CheckAddressSyntax(from, owner_.tlds_) == 0) return {};
  const std::string address = ExtractAddress(from).address;
  return GetMessageText(kTextBadSender, {address.empty() ? from : address});
}

void MailCall::DeliverAll(std::vector<RecipientOutcome>& outcomes) {
  const TextForDelivery message = owner_.message_->TextToSend();
  const std::string from = ExtractAddress(owner_.message_->Addresses().from).address;
  for (RecipientOutcome& outcome : outcomes) {
    const bool waits = outcome.ResultClass == kPending && !mark_.Cancelled();
    const std::string failure =
        waits ? DeliverOne(outcome, from, message.text) : outcome.ResultMessage;
    if (!outcome.Accepted) Note(outcome.Result, failure);
  }
}

// A server that has taken the message is responsible for it (RFC 5321, section 4.2.5), whatever
// becomes of QUIT. Returns what the object says of a failure.
std::string MailCall::DeliverOne(RecipientOutcome& outcome, const std::string& from,
                                 std::string_view text) const {
  const auto session = std::make_shared<SmtpResult>();
  SmtpOrder order = Order(from, outcome.Address);
  const std::int32_t enough = settings_.simulation ? SMTP_STEP_RCPTTO : SMTP_STEP_SENDDATA;
  const OnException judge([&] {
    outcome.Accepted = session->accepted >= enough;
    if (outcome.Accepted || session->endUnknown)
      outcome.ResultClass = outcome.Accepted ? 0 : kMayHaveArrived;
  });
  const bool done = RunSmtpSession(order, text, mark_, session, Events());
  outcome.Accepted = done || session->accepted >= enough;
  outcome.StepID = session->stepID;
  outcome.Result = session->result;
  outcome.ResultMessage = std::move(session->resultMessage);
  outcome.Protocol = WithoutLineEnd(session->protocol);
  outcome.ResultClass = outcome.Accepted ? 0 : ClassOf(*session);
  if (outcome.ResultClass == kInvalidAddress) return outcome.ResultMessage;
  if (IsLookupFailure(*session))
    return GetMessageText(kTextDnsError, {SocketErrorText(session->dnsError)});
  return GetMessageText(kTextSmtpError, {std::string(WithoutLineEnd(outcome.ResultMessage))});
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
