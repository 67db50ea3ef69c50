// The hosts that a watcher observes: when each is due, its rows of successes and failures, and when
// they make it go down or come up. Pure: time comes from outside, on a clock that nobody sets.
// Thread: its owner's.
#pragma once

#include <netro/WatchpostCls.h>

#include <chrono>
#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "diag/WatchSettings.h"
#include "platform/Clock.h"

namespace netro {

struct ProbeResult {
  bool success = false;
  std::int32_t milliSeconds = -1;
  std::string text;
};

enum class WatchChange { None, Down, Up };

class WatchList {
 public:
  struct Host {
    Host(WatchTarget what, TimePoint when) : target(std::move(what)), due(when) {}

    WatchTarget target;
    TimePoint due;
    WatchedStateEnum state = WatchedUnknown;
    std::int32_t successes = 0;
    std::int32_t failures = 0;
    std::string lastText;     // of the last probe
    std::string lastFailure;  // text of the last probe that failed
    std::int32_t lastMilliSeconds = -1;
    Date lastProbe = 0;
  };

  /// Takes the settings' hosts and delays. Hosts that stay keep what is known of them; new ones are
  /// due at `now`.
  void Assign(const WatchSettings& settings, TimePoint now);

  std::size_t Size() const { return hosts_.size(); }
  const Host& At(std::size_t index) const { return hosts_[index]; }

  /// Takes the hosts that are due at `now` out of the schedule, the one that waits longest first.
  /// Each comes back by Record or Release.
  std::vector<std::size_t> TakeDue(TimePoint now);
  /// When the next host is due; TimePoint::max() when none is in the schedule.
  TimePoint NextDue() const;
  /// Takes in how a probe went that ended at `date` (UTC), and schedules the next.
  WatchChange Record(std::size_t index, const ProbeResult& result, Date date, TimePoint now);
  /// The host was not probed after all; it is due again as before.
  void Release(std::size_t index);
  /// The same for all that were taken out.
  void ReleaseAll();
  /// Makes every host of the schedule due.
  void ResetDue(TimePoint now);

 private:
  std::chrono::seconds Delay(const Host& host) const;
  WatchChange Succeeded(Host& host) const;
  WatchChange Failed(Host& host) const;
  void Schedule(std::size_t index, TimePoint due);

  std::vector<Host> hosts_;
  std::set<std::pair<TimePoint, std::size_t>> schedule_;
  std::chrono::seconds upDelay_{0};
  std::chrono::seconds downDelay_{0};
  std::int32_t upCycle_ = 1;
  std::int32_t downCycle_ = 1;
};

}  // namespace netro
