// How "netro time" shows what it got.
#pragma once

#include <netro/QueryTimeCLS.h>

#include "time/TimeOptions.h"

namespace netro::tool {

/// True when the reply holds a time that counts.
bool IsGoodTime(const QueryTimeCLS& query);

/// Prints what the reply tells, a line each; nothing when there is no reply.
void PrintTime(const QueryTimeCLS& query, const TimeRequest& request);

/// Prints the JSON object. `seconds` is how long the call took.
void PrintTimeJson(const QueryTimeCLS& query, const TimeRequest& request, double seconds);

/// Says on standard error what went wrong.
void ExplainTime(const QueryTimeCLS& query, const TimeRequest& request, double timeout);

}  // namespace netro::tool
