// The line that shows on a terminal's standard error how far a transfer is. Nothing is drawn when
// standard error is no terminal, NO_COLOR is set or the program runs in the background. Thread: any
// one.
#pragma once

#include <chrono>
#include <string>

namespace netro::tool {

/// "999 bytes", "1.2 kB", "34 MB"
std::string ByteCount(double bytes);

class ProgressBar {
 public:
  ProgressBar();
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// `total` is below 0 when unknown. Draws at most 10 times a second; the rate is that of the last
  /// few seconds.
  void Update(double done, double total);

  /// Removes the line; the next Update draws it again.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  void Measure(double done, double seconds);
  void Draw(double done, double total);

  const bool enabled_;
  bool drawn_ = false;
  Clock::time_point last_ = Clock::now();
  double lastDone_ = 0;
  double rate_ = 0;  // bytes a second; 0 until something came
};

}  // namespace netro::tool
