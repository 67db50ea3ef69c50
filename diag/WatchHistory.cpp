#include "diag/WatchHistory.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace netro {
namespace {

constexpr std::int64_t kHoursPerDay = 24;
constexpr std::int32_t kMostObserved = 7 * 24 * 3600;  // from one probe to the next

template <class Item>
void Push(std::deque<Item>& list, Item item, std::size_t most) {
  list.push_back(std::move(item));
  if (list.size() > most) list.pop_front();
}

double Uptime(const std::deque<WatchHistory::Sums>& spans, std::int64_t first) {
  std::int64_t up = 0;
  std::int64_t down = 0;
  for (const WatchHistory::Sums& span : spans) {
    if (span.number < first) continue;
    up += span.upSeconds;
    down += span.downSeconds;
  }
  const std::int64_t all = up + down;
  return all == 0 ? -1 : static_cast<double>(up) / static_cast<double>(all);
}

std::int64_t NumberOf(Date date, std::int64_t perDay) {
  return static_cast<std::int64_t>(std::floor(date * static_cast<double>(perDay)));
}

// The one that grows. One of the future was made before the clock was set back; what is less than a
// day ahead goes on growing until its time has come.
WatchHistory::Sums& Last(std::deque<WatchHistory::Sums>& spans, std::int64_t number,
                         std::int64_t tolerance, std::size_t most) {
  while (!spans.empty() && spans.back().number > number + tolerance) spans.pop_back();
  if (spans.empty() || spans.back().number < number) {
    WatchHistory::Sums fresh;
    fresh.number = number;
    Push(spans, fresh, most);
  }
  return spans.back();
}

WatchedSpan ToSpan(const WatchHistory::Sums& sums, std::int64_t perDay) {
  WatchedSpan span;
  span.Begin = static_cast<double>(sums.number) / static_cast<double>(perDay);
  span.UpSeconds = sums.upSeconds;
  span.DownSeconds = sums.downSeconds;
  span.Probes = sums.probes;
  span.Failed = sums.failed;
  span.Shortest = sums.shortest;
  span.Longest = sums.longest;
  const std::int32_t answers = sums.probes - sums.failed;
  if (answers > 0) span.Average = static_cast<std::int32_t>(sums.total / answers);
  return span;
}

void Grow(WatchHistory::Sums& sums, WatchHistory::State before, std::int32_t observed,
          std::int32_t milliSeconds) {
  if (before == WatchHistory::State::Up) sums.upSeconds += observed;
  if (before == WatchHistory::State::Down) sums.downSeconds += observed;
  ++sums.probes;
  if (milliSeconds < 0) {
    ++sums.failed;
    return;
  }
  sums.shortest = sums.shortest < 0 ? milliSeconds : std::min(sums.shortest, milliSeconds);
  sums.longest = std::max(sums.longest, milliSeconds);
  sums.total += milliSeconds;
}

}  // namespace

void WatchHistory::Record(Date date, State state, std::int32_t observed, std::int32_t milliSeconds,
                          const std::string& reason) {
  AddTime(milliSeconds);
  observed = std::clamp(observed, 0, kMostObserved);
  Grow(Last(hours_, NumberOf(date, kHoursPerDay), kHoursPerDay, kMostHours), state_, observed,
       milliSeconds);
  Grow(Last(days_, NumberOf(date, 1), 1, kMostDays), state_, observed, milliSeconds);
  if (state == State::Down && state_ != State::Down) {
    AddOutage({date, 0, reason.substr(0, kLongestReason)});
  }
  const bool lasts = !outages_.empty() && outages_.back().End == 0;
  if (state == State::Up && lasts) outages_.back().End = std::max(date, outages_.back().Begin);
  state_ = state;
}

void WatchHistory::AddTime(std::int32_t milliSeconds) { Push(times_, milliSeconds, kMostTimes); }

void WatchHistory::AddHour(const Sums& sums) { Push(hours_, sums, kMostHours); }

void WatchHistory::AddDay(const Sums& sums) { Push(days_, sums, kMostDays); }

void WatchHistory::AddOutage(WatchedOutage outage) {
  Push(outages_, std::move(outage), kMostOutages);
}

WatchedPast WatchHistory::Past(Date now) const {
  WatchedPast past;
  past.Times.assign(times_.begin(), times_.end());
  for (const Sums& sums : hours_) past.Hours.push_back(ToSpan(sums, kHoursPerDay));
  for (const Sums& sums : days_) past.Days.push_back(ToSpan(sums, 1));
  past.Outages.assign(outages_.begin(), outages_.end());
  past.UptimeDay = Uptime(hours_, NumberOf(now, kHoursPerDay) - 23);
  past.UptimeWeek = Uptime(days_, NumberOf(now, 1) - 6);
  past.UptimeMonth = Uptime(days_, NumberOf(now, 1) - 29);
  return past;
}

}  // namespace netro
