// What "netro watch" remembers of the past, in bounded memory: some 500 bytes a host. Thread: any
// one.
#pragma once

#include <netro/WatchpostCls.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace netro::tool {

/// The probes of one host.
class HostHistory {
 public:
  static constexpr std::size_t kMostTimes = 120;

  /// Takes a probe in; below 0 for a failure.
  void Add(std::int32_t milliSeconds);

  /// The last ones, the oldest first.
  std::vector<std::int32_t> Times() const;
  /// Of all times.
  std::int64_t Probes() const { return probes_; }
  std::int64_t Failed() const { return failed_; }

  WatchedStateEnum state = WatchedUnknown;
  Date since = 0;  // when the state began; 0 for WatchedUnknown

 private:
  std::vector<std::int32_t> times_;  // a ring once it is full
  std::size_t oldest_ = 0;
  std::int64_t probes_ = 0;
  std::int64_t failed_ = 0;
};

/// A host that has gone down or come up again.
struct WatchChange {
  Date time = 0;
  WatchedStateEnum state = WatchedUnknown;
  std::string name;
  std::string host;
  std::string text;
};

/// Numbers of hosts by state.
class StateCounts {
 public:
  std::size_t& operator[](WatchedStateEnum state) { return of_[static_cast<std::size_t>(state)]; }
  std::size_t operator[](WatchedStateEnum state) const {
    return of_[static_cast<std::size_t>(state)];
  }
  std::size_t All() const { return of_[0] + of_[1] + of_[2]; }

 private:
  std::array<std::size_t, 3> of_{};
};

/// What a probe has shown of its host's state.
enum class HostNews { None, FirstAnswer, Report };

class WatchHistory {
 public:
  static constexpr std::size_t kMostChanges = 500;

  void Begin(std::size_t hosts) { hosts_.resize(hosts); }

  /// Takes a probe in, as HostAt(index) tells it.
  HostNews Add(std::size_t index, const WatchedHost& host);

  const HostHistory& Of(std::size_t index) const { return hosts_[index]; }
  std::size_t HostCount() const { return hosts_.size(); }
  StateCounts Counts() const;
  /// Hosts by their place: those that are down, then unseen ones, then the others.
  std::vector<std::int32_t> ByUrgency() const;
  /// The newest first; without first answers.
  const std::deque<WatchChange>& Changes() const { return changes_; }

 private:
  std::vector<HostHistory> hosts_;
  std::deque<WatchChange> changes_;
};

}  // namespace netro::tool
