// What a WatchpostCls remembers of a host's past, in bounded memory. Plain values.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace netro {

/// An hour or a day (UTC) of a host.
struct WatchedSpan {
  Date Begin = 0;              // UTC
  std::int32_t UpSeconds = 0;  // of those that were observed
  std::int32_t DownSeconds = 0;  // the same of those in which it was down
  std::int32_t Probes = 0;       // all of them
  std::int32_t Failed = 0;  // of the probes
  // Of the probes that succeeded, in milliseconds; -1 when there was none.
  std::int32_t Shortest = -1;
  std::int32_t Average = -1;
  std::int32_t Longest = -1;
};

/// The time from a host's going down to its coming up.
struct WatchedOutage {
  Date Begin = 0;  // UTC
  Date End = 0;    // UTC; 0 while it lasts
  std::string Reason;  // the text of the probe that failed last before it was reported
};

/// All lists begin with the oldest. Hours and days without a probe are left out.
struct WatchedPast {
  std::vector<std::int32_t> Times;     // milliseconds of the last 120 probes, -1 for a failure
  std::vector<WatchedSpan> Hours;      // 48 at most
  std::vector<WatchedSpan> Days;       // 31 at most
  std::vector<WatchedOutage> Outages;  // 32 at most
  /// The part of the observed time that the host was not down, 0 to 1: of the last 24 hours, 7 days
  /// and 30 days. -1 while nothing is known.
  double UptimeDay = -1;
  double UptimeWeek = -1;
  double UptimeMonth = -1;
};

}  // namespace netro
