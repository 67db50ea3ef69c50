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
  return state == WatchedUp ? "up" : state == WatchedDown ? "down" : "unseen";
}

const char* KindName(const WatchedHost& host) { return host.Http ? "http" : "Ping"; }

std::string CountsText(const StateCounts& counts) {
  const std::size_t all = counts.All();
  std::string text = std::to_string(all) + (all == 1 ? " host" : " hosts");
  const char* separator = ": ";
  for (const WatchedStateEnum state : {WatchedUp, WatchedDown, WatchedUnknown}) {
    if (counts[state] == 0) continue;
    text += separator + std::to_string(counts[state]) + " " + StateName(state);
    separator = ", ";
  }
  return text;
}

std::string OneLine(std::string_view text) {
  std::string line = Printable(text);
  std::ranges::replace(line, '\n', ' ');
  std::ranges::replace(line, '\t', ' ');
  return line;
}

std::string ShownHost(const WatchedHost& host) {
  std::string text = OneLine(host.Host);
  const std::size_t scheme = text.find("://");
  const std::size_t begin = scheme == text.npos ? 0 : scheme + 3;
  const std::size_t at = text.substr(0, text.find_first_of("/?#", begin)).rfind('@');
  if (host.Http && at != text.npos && at >= begin) text.replace(begin, at - begin, "***");
  return text;
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
