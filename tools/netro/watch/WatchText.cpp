// How "netro watch" writes hosts and times.

#include "watch/WatchText.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "terminal/Encoding.h"

namespace netro::tool {
namespace {

constexpr double kSecondsPerDay = 86400;

}  // namespace

const char* StateName(WatchedStateEnum state) {
  constexpr const char* kNames[] = {"unseen", "up", "down", "unreachable"};
  return kNames[state];
}

const char* ChangeName(WatchedChangeEnum change) {
  constexpr const char* kNames[] = {"",         "down",    "up",        "unreachable",
                                    "flapping", "settled", "still down"};
  return kNames[change];
}

std::string CountsText(const StateCounts& counts) {
  const std::size_t all = counts.All();
  std::string text = std::to_string(all) + (all == 1 ? " host" : " hosts");
  const char* separator = ": ";
  for (const WatchedStateEnum state :
       {WatchedUp, WatchedDown, WatchedUnreachable, WatchedUnknown}) {
    if (counts[state] == 0) continue;
    text += separator + std::to_string(counts[state]) + " " + StateName(state);
    separator = ", ";
  }
  return text;
}

std::string OneLine(std::string_view text) {
  std::string line = ShownText(text);
  std::ranges::replace(line, '\n', ' ');
  std::ranges::replace(line, '\t', ' ');
  return line;
}

std::string ShownHost(const WatchedHost& host) {
  return OneLine(host.Http ? ShownUrl(host.Host, "***@") : host.Host);
}

std::int32_t ChartTop(const std::vector<std::int32_t>& times) {
  constexpr std::int32_t kLeast = 8;
  return times.empty() ? kLeast : std::max(kLeast, *std::ranges::max_element(times));
}

std::string Sparkline(const std::vector<std::int32_t>& times, std::size_t width) {
  constexpr const char* kBars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  const std::size_t shown = std::min(times.size(), width);
  const std::int64_t top = ChartTop(times);
  std::string line(width - shown, ' ');
  for (std::size_t i = times.size() - shown; i < times.size(); ++i) {
    line += times[i] < 0 ? "·" : kBars[times[i] * std::int64_t{7} / top];
  }
  return line;
}

std::string UptimeText(double uptime) {
  if (uptime < 0) return "–";
  // Cut down, so that only a whole month is 100 %.
  const auto hundredths = static_cast<std::int64_t>(std::floor(uptime * 10000));
  if (hundredths == 10000) return "100\u00A0%";
  const std::string rest = std::to_string(hundredths % 100);
  return std::to_string(hundredths / 100) + "." + (rest.size() == 1 ? "0" : "") + rest + "\u00A0%";
}

std::string DurationText(Date days) {
  constexpr std::int64_t kMinute = 60;
  constexpr std::int64_t kHour = 3600;
  constexpr std::int64_t kDay = 86400;
  const std::int64_t seconds = std::max<std::int64_t>(0, std::llround(days * kSecondsPerDay));
  const auto pair = [](std::int64_t high, const char* unit, std::int64_t low, const char* lowUnit) {
    return std::to_string(high) + unit + (low == 0 ? "" : " " + std::to_string(low) + lowUnit);
  };
  if (seconds >= kDay) return pair(seconds / kDay, " d", seconds % kDay / kHour, " h");
  if (seconds >= kHour) return pair(seconds / kHour, " h", seconds % kHour / kMinute, " min");
  return pair(seconds / kMinute, " min", seconds % kMinute, " s");
}

Date DateNow() {
  constexpr double kDaysTo1970 = 25569;
  const std::chrono::duration<double> since1970 =
      std::chrono::system_clock::now().time_since_epoch();
  return kDaysTo1970 + since1970.count() / kSecondsPerDay;
}

std::int64_t SecondsUntil(Date date) {
  return std::max<std::int64_t>(0, std::llround((date - DateNow()) * kSecondsPerDay));
}

}  // namespace netro::tool
