// What "netro watch" remembers of the past.

#include "watch/WatchHistory.h"

#include <algorithm>
#include <numeric>

#include "terminal/TextWidth.h"
#include "watch/WatchText.h"

namespace netro::tool {
namespace {

/// A server may answer at any length.
constexpr std::size_t kLongestText = 300;

int Urgency(WatchedStateEnum state) {
  return state == WatchedDown ? 0 : state == WatchedUnknown ? 1 : 2;
}

}  // namespace

void HostHistory::Add(std::int32_t milliSeconds) {
  ++probes_;
  failed_ += milliSeconds < 0 ? 1 : 0;
  if (times_.size() < kMostTimes) {
    times_.push_back(milliSeconds);
    return;
  }
  times_[oldest_] = milliSeconds;
  oldest_ = (oldest_ + 1) % kMostTimes;
}

std::vector<std::int32_t> HostHistory::Times() const {
  std::vector<std::int32_t> times = times_;
  std::rotate(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(oldest_), times.end());
  return times;
}

HostNews WatchHistory::Add(std::size_t index, const WatchedHost& host) {
  HostHistory& history = hosts_[index];
  history.Add(host.LastMilliSeconds);
  if (history.state == host.State) return HostNews::None;
  const bool isFirstAnswer = history.state == WatchedUnknown && host.State == WatchedUp;
  history.state = host.State;
  history.since = host.LastProbe;
  if (isFirstAnswer) return HostNews::FirstAnswer;
  changes_.push_front({host.LastProbe, host.State, OneLine(host.Name), ShownHost(host),
                       Shortened(OneLine(host.LastAnswer), kLongestText)});
  changes_.resize(std::min(changes_.size(), kMostChanges));
  return HostNews::Report;
}

StateCounts WatchHistory::Counts() const {
  StateCounts counts;
  for (const HostHistory& host : hosts_) ++counts[host.state];
  return counts;
}

std::vector<std::int32_t> WatchHistory::ByUrgency() const {
  std::vector<std::int32_t> order(hosts_.size());
  std::iota(order.begin(), order.end(), 0);
  std::ranges::stable_sort(order, {}, [this](std::int32_t index) {
    return Urgency(hosts_[static_cast<std::size_t>(index)].state);
  });
  return order;
}

}  // namespace netro::tool
