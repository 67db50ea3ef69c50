// The questions of a survey to one server, asked one after the other in a task.
#pragma once

#include <netro/TimeSurveyCls.h>

#include <cstdint>

namespace netro {

/// How one server is asked.
struct TimeSampling {
  std::int32_t samples = 1;
  std::int32_t interval = 0;  // milliseconds
};

/// Asks with `query`, whose server is set, and enters into `report` what came of it; State is
/// Unjudged, or LeftOut with a reason. Blocks; ends early when the task is cancelled.
void TakeTimeSamples(QueryTimeCLS& query, const TimeSampling& sampling, TimeServerReport& report);

}  // namespace netro
