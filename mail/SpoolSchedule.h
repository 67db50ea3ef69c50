// When a recipient of a spooled message is tried, and what an outcome makes of it. Dates are UTC;
// the wall clock counts, since they outlive the program. Pure. Thread: any.
#pragma once

#include <netro/MailSpool.h>

#include <cstdint>
#include <string>
#include <vector>

namespace netro {

struct SpoolSchedule {
  std::vector<std::int32_t> retrySeconds;  // not empty; the last counts for all that follow
  std::int32_t limitSeconds = 0;
};

/// A next try that is further away than any can be was made on a clock that has been set back
/// since: it is due.
bool IsDue(const SpoolSchedule& schedule, Date nextTry, Date now);

/// Changes a pending recipient by the outcome of a try that has just ended: decided, or with the
/// next try, which is never beyond the limit. False when nothing was tried.
bool JudgeTry(const SpoolSchedule& schedule, Date created, const RecipientOutcome& outcome,
              Date now, SpooledRecipient& recipient);

/// True when the outcome is one of the server and would be that of any other message too.
bool IsServerDown(const RecipientOutcome& outcome);

}  // namespace netro
