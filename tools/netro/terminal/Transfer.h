// How far a transfer is, in words. Thread: any one.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace netro::tool {

/// "999 bytes", "1.2 kB", "34 MB"
std::string ByteCount(double bytes);

class Transfer {
 public:
  /// To be told several times a second; the rate is that of the last few seconds. `total` is below
  /// 0 when unknown.
  void Measure(double done, double total);

  /// " 50% [=====>     ] 1.0 MB of 2.0 MB  300 kB/s  0:03 left", in at most `width` columns; where
  /// they are few, the bar is shorter or left out, and then the last parts.
  std::string Text(std::size_t width) const;

 private:
  using Clock = std::chrono::steady_clock;

  Clock::time_point last_ = Clock::now();
  double done_ = 0;
  double total_ = -1;
  double rate_ = 0;  // bytes a second; 0 until something came
};

}  // namespace netro::tool
