// The past of one host: times, hours, days and outages, in bounded memory (some 10 KB). Pure: time
// comes from outside. Thread: its owner's.
#pragma once

#include <netro/WatchedPast.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace netro {

class WatchHistory {
 public:
  static constexpr std::size_t kMostTimes = 120;
  static constexpr std::size_t kMostHours = 48;
  static constexpr std::size_t kMostDays = 31;
  static constexpr std::size_t kMostOutages = 32;
  static constexpr std::size_t kLongestReason = 200;

  /// Unknown: not judged, as a host that was never seen, or one behind another that is down.
  enum class State { Unknown, Up, Down };

  /// A span while it grows.
  struct Sums {
    std::int64_t number = 0;  // of the hour or day, since 30 December 1899
    std::int32_t upSeconds = 0;
    std::int32_t downSeconds = 0;
    std::int32_t probes = 0;
    std::int32_t failed = 0;
    std::int32_t shortest = -1;
    std::int32_t longest = -1;
    std::int64_t total = 0;  // milliseconds

    bool operator==(const Sums&) const = default;
  };

  /// Takes in a probe that ended at `date` (UTC) and took `milliSeconds`, below 0 when it failed
  /// for `reason`; the host is `state` by now. `observed` are the seconds since the probe before
  /// it, by a clock that nobody sets; 0 when nothing was observed meanwhile.
  void Record(Date date, State state, std::int32_t observed, std::int32_t milliSeconds,
              const std::string& reason);

  WatchedPast Past(Date now) const;

  // For what keeps it on the disk.
  const std::deque<std::int32_t>& Times() const { return times_; }
  const std::deque<Sums>& Hours() const { return hours_; }
  const std::deque<Sums>& Days() const { return days_; }
  const std::deque<WatchedOutage>& Outages() const { return outages_; }
  State Now() const { return state_; }
  /// Each adds to the end of its list, as the oldest is dropped from a full one.
  void AddTime(std::int32_t milliSeconds);
  void AddHour(const Sums& sums);
  void AddDay(const Sums& sums);
  void AddOutage(WatchedOutage outage);
  void SetState(State state) { state_ = state; }

 private:
  State state_ = State::Unknown;
  std::deque<std::int32_t> times_;
  std::deque<Sums> hours_;
  std::deque<Sums> days_;
  std::deque<WatchedOutage> outages_;
};

}  // namespace netro
