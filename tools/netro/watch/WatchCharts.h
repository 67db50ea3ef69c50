// The small charts of the page of "netro watch --html", as SVG with a text that tells the same.
// Thread: any.
#pragma once

#include <netro/WatchpostCls.h>

#include <cstdint>
#include <string>
#include <vector>

namespace netro::tool {

/// The times of the last probes, the newest at the right end. Empty without any.
std::string TimesChart(const std::vector<std::int32_t>& times);

/// The average and the longest time of each of the last 48 hours until `now`. Empty with less than
/// two of them.
std::string HoursChart(const std::vector<WatchedSpan>& hours, Date now);

/// The last 30 days until `now`: up, partly down, down or not observed.
std::string DaysChart(const std::vector<WatchedSpan>& days, Date now);

}  // namespace netro::tool
