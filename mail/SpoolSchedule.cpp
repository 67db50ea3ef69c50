#include "mail/SpoolSchedule.h"

#include <algorithm>
#include <cstddef>

#include "mail/SpoolFile.h"
#include "platform/ErrorNumbers.h"
#include "support/DateText.h"

namespace netro {
namespace {

/// Of RecipientOutcome::ResultClass.
enum Class : std::int32_t {
  kFatalDns = 3010,
  kFatalSmtp = 3011,
  kInvalidAddress = 3013,
  kNotTried = 3018,
  kMayHaveArrived = 3019,
};

SpoolStateEnum StateAfter(const RecipientOutcome& outcome) {
  if (outcome.Accepted) return SpoolDelivered;
  // A wrong password is for whoever runs the spool, and no fault of the message.
  if (outcome.StepID == SMTP_STEP_AUTH) return SpoolPending;
  switch (outcome.ResultClass) {
    case kFatalSmtp:  // a password that is wrong now is no reason to return what waits
      if (outcome.StepID == SMTP_STEP_STARTTLS || outcome.StepID == SMTP_STEP_AUTH)
        return SpoolPending;
      return SpoolFailed;
    case kFatalDns:
    case kInvalidAddress:
      return SpoolFailed;
    case kMayHaveArrived:
      return SpoolMayHaveArrived;
    default:
      return SpoolPending;
  }
}

}  // namespace

bool IsDue(const SpoolSchedule& schedule, Date nextTry, Date now) {
  const double longest = std::ranges::max(schedule.retrySeconds);
  return nextTry <= now || nextTry > AddSeconds(now, longest);
}

bool JudgeTry(const SpoolSchedule& schedule, Date created, const RecipientOutcome& outcome,
              Date now, SpooledRecipient& recipient) {
  if (!outcome.Accepted && outcome.ResultClass == kNotTried) return false;
  const std::size_t last = schedule.retrySeconds.size() - 1;
  const auto before = static_cast<std::size_t>(std::max(recipient.Tries, 0));
  ++recipient.Tries;
  recipient.LastTry = now;
  recipient.NextTry = 0;
  recipient.ResultClass = outcome.ResultClass;
  recipient.Result = outcome.Result;
  recipient.Answer = CleanAnswer(outcome.ResultMessage);
  recipient.State = StateAfter(outcome);
  if (recipient.State != SpoolPending) return true;
  const Date limit = AddSeconds(created, schedule.limitSeconds);
  if (now >= limit) {
    recipient.State = SpoolFailed;
  } else {
    recipient.NextTry =
        std::min(AddSeconds(now, schedule.retrySeconds[std::min(before, last)]), limit);
  }
  return true;
}

bool IsServerDown(const RecipientOutcome& outcome) {
  if (StateAfter(outcome) != SpoolPending || outcome.ResultClass == kNotTried) return false;
  switch (outcome.StepID) {
    case SMTP_STEP_INITSOCKET:
    case SMTP_STEP_AUTODNS:
      return true;
    case SMTP_STEP_SOCKETERROR:
      return outcome.Result == kErrRefused;
    default:  // all that comes before the first word of the message
      return outcome.StepID > SMTP_STEP_UNDEFINED && outcome.StepID < SMTP_STEP_MAILFROM;
  }
}

}  // namespace netro
