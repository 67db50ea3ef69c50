#include "diag/WatchList.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <tuple>

namespace netro {

using std::chrono::seconds;

void WatchList::Assign(const WatchSettings& settings, TimePoint now) {
  upDelay_ = seconds(settings.upDelay);
  downDelay_ = seconds(settings.downDelay);
  upCycle_ = settings.upCycle;
  downCycle_ = settings.downCycle;
  std::map<std::tuple<std::string, std::string, bool>, Host*> known;
  for (Host& host : hosts_) {
    known[{host.target.name, host.target.host, host.target.http}] = &host;
  }
  std::vector<Host> hosts;
  for (const WatchTarget& target : settings.targets) {
    const auto found = known.find({target.name, target.host, target.http});
    hosts.push_back(found != known.end() ? *found->second : Host{target, now});
    // A delay that has become shorter counts at once.
    hosts.back().due = std::min(hosts.back().due, now + Delay(hosts.back()));
  }
  hosts_ = std::move(hosts);
  schedule_.clear();
  ReleaseAll();
}

seconds WatchList::Delay(const Host& host) const {
  return host.failures > 0 || host.state == WatchedDown ? downDelay_ : upDelay_;
}

std::vector<std::size_t> WatchList::TakeDue(TimePoint now) {
  std::vector<std::size_t> due;
  while (!schedule_.empty() && schedule_.begin()->first <= now) {
    due.push_back(schedule_.begin()->second);
    schedule_.erase(schedule_.begin());
  }
  return due;
}

TimePoint WatchList::NextDue() const {
  return schedule_.empty() ? TimePoint::max() : schedule_.begin()->first;
}

WatchChange WatchList::Record(std::size_t index, const ProbeResult& result, Date date,
                              TimePoint now) {
  Host& host = hosts_[index];
  host.lastText = result.text;
  host.lastMilliSeconds = result.success ? result.milliSeconds : -1;
  host.lastProbe = date;
  if (!result.success) host.lastFailure = result.text;
  const WatchChange change = result.success ? Succeeded(host) : Failed(host);
  Schedule(index, now + Delay(host));
  return change;
}

WatchChange WatchList::Succeeded(Host& host) const {
  host.failures = 0;
  ++host.successes;
  const bool wasDown = host.state == WatchedDown;
  if (wasDown && host.successes < upCycle_) return WatchChange::None;
  host.state = WatchedUp;
  return wasDown ? WatchChange::Up : WatchChange::None;
}

WatchChange WatchList::Failed(Host& host) const {
  host.successes = 0;
  ++host.failures;
  if (host.state == WatchedDown || host.failures < downCycle_) return WatchChange::None;
  host.state = WatchedDown;
  return WatchChange::Down;
}

void WatchList::Release(std::size_t index) { Schedule(index, hosts_[index].due); }

void WatchList::ReleaseAll() {
  for (std::size_t i = 0; i < hosts_.size(); ++i) schedule_.insert({hosts_[i].due, i});
}

void WatchList::ResetDue(TimePoint now) {
  std::set<std::pair<TimePoint, std::size_t>> schedule;
  for (const auto& [due, index] : schedule_) {
    hosts_[index].due = now;
    schedule.insert({now, index});
  }
  schedule_ = std::move(schedule);
}

void WatchList::Schedule(std::size_t index, TimePoint due) {
  hosts_[index].due = due;
  schedule_.insert({due, index});
}

}  // namespace netro
