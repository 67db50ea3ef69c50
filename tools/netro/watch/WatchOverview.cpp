// The states of all hosts at one moment.

#include "watch/WatchOverview.h"

#include <algorithm>
#include <numeric>

namespace netro::tool {
namespace {

int Urgency(WatchedStateEnum state) {
  constexpr int kUrgencies[] = {2, 3, 0, 1};
  return kUrgencies[state];
}

}  // namespace

WatchOverview::WatchOverview(const WatchpostCls& post) {
  for (std::int32_t i = 0; i < post.HostCount(); ++i) states_.push_back(post.HostAt(i).State);
}

StateCounts WatchOverview::Counts() const {
  StateCounts counts;
  for (const WatchedStateEnum state : states_) ++counts[state];
  return counts;
}

std::vector<std::int32_t> WatchOverview::ByUrgency() const {
  std::vector<std::int32_t> order(states_.size());
  std::iota(order.begin(), order.end(), 0);
  std::ranges::stable_sort(order, {}, [this](std::int32_t i) { return Urgency(StateOf(i)); });
  return order;
}

}  // namespace netro::tool
