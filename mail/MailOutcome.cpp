#include "mail/MailOutcome.h"

#include <netro/Localization.h>

#include <utility>

#include "dns/DnsResult.h"
#include "mail/SmtpTables.h"
#include "mail/SmtpTranscript.h"
#include "socket/SocketErrors.h"

namespace netro {
namespace {

// Of messages.
enum Text : std::int32_t {
  kTextDnsError = 4002,
  kTextSmtpError = 4005,
  kTextFatalFailures = 6007,
  kTextTemporaryFailures = 6008,
};

// Where the tables say nothing, the reply's first digit does (RFC 5321, section 4.2.1).
std::int32_t ClassOfReply(std::int32_t code) {
  const std::int32_t digit = code / 100;
  return digit == 5 ? kFatalSmtp : digit == 4 ? kTemporarySmtp : kOtherSmtp;
}

}  // namespace

std::int32_t ClassOf(const SmtpRecipient& recipient) {
  if (recipient.state == SmtpRecipient::State::Delivered) return 0;
  if (recipient.state == SmtpRecipient::State::Unknown) return kMayHaveArrived;
  if (recipient.stepID == SMTP_STEP_PRECHECK) return kInvalidAddress;
  if (recipient.result == SMTP_CANCELED) return kPending;
  const bool dns = recipient.stepID == SMTP_STEP_AUTODNS;
  if (dns && recipient.dnsError == kDnsNullMx) return kFatalDns;
  const std::int32_t step = dns ? SMTP_STEP_DNS : recipient.stepID;
  const std::int32_t code = dns ? recipient.dnsError : recipient.result;
  if (HasStepEntry(GetMessageText(kTextFatalFailures), step, code))
    return dns ? kFatalDns : kFatalSmtp;
  if (HasStepEntry(GetMessageText(kTextTemporaryFailures), step, code))
    return dns ? kTemporaryDns : kTemporarySmtp;
  return dns ? kOtherDns : ClassOfReply(code);
}

void Conclude(RecipientOutcome& outcome, MailRecipient& recipient) {
  outcome.Protocol = WithoutLineEnd(recipient.protocol);
  outcome.Tries = std::move(recipient.tries);
  SmtpRecipient& smtp = recipient.smtp;
  const bool undecided = smtp.state == SmtpRecipient::State::Waiting ||
                         smtp.state == SmtpRecipient::State::Taken;
  if (undecided && smtp.stepID == SMTP_STEP_NOERROR) return;
  outcome.StepID = smtp.stepID;
  outcome.Result = smtp.result;
  outcome.ResultMessage = std::move(smtp.message);
  outcome.EnhancedStatus = std::move(smtp.enhanced);
  outcome.ResultClass = ClassOf(smtp);
  outcome.Accepted = outcome.ResultClass == 0;
}

void RefuseOne(RecipientOutcome& outcome, std::string text) {
  outcome.StepID = SMTP_STEP_PRECHECK;
  outcome.Result = SMTP_INITERROR;
  outcome.ResultMessage = std::move(text);
  outcome.ResultClass = kInvalidAddress;
}

void CannotRead(RecipientOutcome& outcome, const SmtpData& message) {
  outcome.StepID = SMTP_STEP_SENDDATA;
  outcome.Result = message.Error();
  outcome.ResultMessage = message.ErrorText();
  outcome.ResultClass = kOtherSmtp;
}

std::string FailureText(const RecipientOutcome& outcome, std::int32_t dnsError) {
  if (outcome.StepID == SMTP_STEP_PRECHECK || outcome.StepID == SMTP_STEP_NOERROR)
    return outcome.ResultMessage;
  if (outcome.StepID == SMTP_STEP_AUTODNS)
    return GetMessageText(kTextDnsError, {SocketErrorText(dnsError)});
  return GetMessageText(kTextSmtpError, {std::string(WithoutLineEnd(outcome.ResultMessage))});
}

}  // namespace netro
