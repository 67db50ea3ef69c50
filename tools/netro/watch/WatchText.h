// How "netro watch" writes hosts and times, wherever it shows them. Thread: any.
#pragma once

#include <netro/WatchpostCls.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "watch/WatchOverview.h"

namespace netro::tool {

/// "up", "down", "unseen", "unreachable"
const char* StateName(WatchedStateEnum state);
/// "down", "up", "unreachable", "flapping", "settled", "still down"
const char* ChangeName(WatchedChangeEnum change);

/// "3 hosts: 1 up, 1 down, 1 unseen"
std::string CountsText(const StateCounts& counts);

/// Foreign bytes on one line: what disturbs a terminal or is no UTF-8 made visible.
std::string OneLine(std::string_view text);

/// The host without a password that its URL may hold; on one line.
std::string ShownHost(const WatchedHost& host);

/// The time that a chart of such times ends at: their longest, but never so little that small
/// differences look large.
std::int32_t ChartTop(const std::vector<std::int32_t>& times);
/// The last `width` times as bars of eight heights, the newest at the right end.
std::string Sparkline(const std::vector<std::int32_t>& times, std::size_t width);

/// "99.95 %"; a dash while nothing is known.
std::string UptimeText(double uptime);

/// "3 d 4 h", "2 h 5 min", "40 s"
std::string DurationText(Date days);

/// The present time (UTC).
Date DateNow();
/// Seconds from now on; 0 for what has passed.
std::int64_t SecondsUntil(Date date);

}  // namespace netro::tool
