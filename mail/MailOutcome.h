// What becomes of recipients, as RecipientOutcome has it. Thread: any.
#pragma once

#include <netro/SendMailCls.h>

#include <cstdint>
#include <string>

#include "mail/MailDelivery.h"

namespace netro {

/// Kinds of failures, by the numbers of their messages.
enum OutcomeClass : std::int32_t {
  kFatalDns = 3010,
  kFatalSmtp = 3011,
  kInvalidAddress = 3013,
  kTemporaryDns = 3014,
  kTemporarySmtp = 3015,
  kOtherDns = 3016,
  kOtherSmtp = 3017,
  kPending = 3018,
  kMayHaveArrived = 3019,
};

std::int32_t ClassOf(const SmtpRecipient& recipient);

/// Takes over what the sessions have left. Who was in none stays as he is.
void Conclude(RecipientOutcome& outcome, MailRecipient& recipient);
/// Nobody is asked.
void RefuseOne(RecipientOutcome& outcome, std::string text);
/// The message cannot be read, which is the same for all.
void CannotRead(RecipientOutcome& outcome, const SmtpData& message);

/// What the object says of a failure.
std::string FailureText(const RecipientOutcome& outcome, std::int32_t dnsError);

}  // namespace netro
