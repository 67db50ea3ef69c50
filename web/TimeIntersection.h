// Which of several clocks agree: the intersection of RFC 5905, section 11.2.1. Pure; any thread.
#pragma once

#include <optional>
#include <span>
#include <vector>

namespace netro {

/// What one clock says: the true offset is within `radius` of `offset`. Seconds.
struct TimeInterval {
  double offset = 0;
  double radius = 0;
};

struct TimeAgreement {
  double low = 0;
  double high = 0;
  std::vector<bool> agrees;  // for each clock: false for a false ticker
};

/// The smallest interval that holds points of a majority's intervals, and the middles of as many of
/// them; none when no majority agrees.
std::optional<TimeAgreement> FindAgreement(std::span<const TimeInterval> clocks);

}  // namespace netro
