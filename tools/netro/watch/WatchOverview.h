// The states of all hosts at one moment. Thread: any one.
#pragma once

#include <netro/WatchpostCls.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace netro::tool {

/// Numbers of hosts by state.
class StateCounts {
 public:
  std::size_t& operator[](WatchedStateEnum state) { return of_[static_cast<std::size_t>(state)]; }
  std::size_t operator[](WatchedStateEnum state) const {
    return of_[static_cast<std::size_t>(state)];
  }
  std::size_t All() const { return of_[0] + of_[1] + of_[2] + of_[3]; }

 private:
  std::array<std::size_t, 4> of_{};
};

class WatchOverview {
 public:
  explicit WatchOverview(const WatchpostCls& post);

  std::size_t HostCount() const { return states_.size(); }
  WatchedStateEnum StateOf(std::int32_t index) const {
    return states_[static_cast<std::size_t>(index)];
  }
  StateCounts Counts() const;
  /// Hosts by their place: those that are down, behind such a one, unseen, then the others.
  std::vector<std::int32_t> ByUrgency() const;

 private:
  std::vector<WatchedStateEnum> states_;
};

}  // namespace netro::tool
