// Figures of round trips as they come.

#include "terminal/TimeStatistics.h"

#include <algorithm>
#include <cmath>

namespace netro::tool {

void TimeStatistics::Add(double time) {
  minimum_ = count_ == 0 ? time : std::min(minimum_, time);
  maximum_ = std::max(maximum_, time);
  ++count_;
  // Welford's method: no large sums, of which small differences would be lost.
  const double distance = time - average_;
  average_ += distance / count_;
  squares_ += distance * (time - average_);
}

double TimeStatistics::Deviation() const { return count_ == 0 ? 0 : std::sqrt(squares_ / count_); }

}  // namespace netro::tool
