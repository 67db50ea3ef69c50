// Counts the ticks of a host's 10 ms timer, to show that the host does not notice what the library
// does.
#pragma once

#include <algorithm>
#include <chrono>

class TickCount {
 public:
  using Clock = std::chrono::steady_clock;
  /// On a busy machine a round may be unlucky; who blocks the host is in none.
  static constexpr int kMostRounds = 5;

  void Begin() {
    begin_ = Clock::now();
    ticks_ = 0;
  }
  void Tick() { ++ticks_; }

  double Seconds() const { return std::chrono::duration<double>(Clock::now() - begin_).count(); }
  double PerSecond() const { return ticks_ / Seconds(); }
  /// 95 ticks a second, or what the machine lets the host have by itself.
  bool IsAsGoodAs(double alone) const { return PerSecond() >= std::min(95.0, 0.95 * alone); }

 private:
  Clock::time_point begin_ = Clock::now();
  int ticks_ = 0;
};
