// Figures of round trips as they come (ping, trace). Thread: any one.
#pragma once

#include <cstdint>

namespace netro::tool {

/// All in microseconds; 0 before the first.
class TimeStatistics {
 public:
  void Add(double time);

  std::int32_t Count() const { return count_; }
  double Minimum() const { return minimum_; }
  double Maximum() const { return maximum_; }
  double Average() const { return average_; }
  /// The standard deviation.
  double Deviation() const;

 private:
  std::int32_t count_ = 0;
  double minimum_ = 0;
  double maximum_ = 0;
  double average_ = 0;
  double squares_ = 0;  // of the distances from the average
};

}  // namespace netro::tool
