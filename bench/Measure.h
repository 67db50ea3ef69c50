// Measuring a piece of work in a process of its own, so that memory, descriptors and processor time
// of one measurement do not show in the next.
#pragma once

#include <functional>
#include <string>
#include <utility>

namespace netro::bench {

/// Wall-clock and processor time between Start and Stop.
class Stopwatch {
 public:
  void Start();
  void Stop();

  /// For work that another program does and that was measured there.
  void Set(double seconds, double cpuSeconds);
  /// A few words that the table shows behind the figures.
  void Note(std::string note) { note_ = std::move(note); }

  double Seconds() const { return seconds_; }
  double CpuSeconds() const { return cpuSeconds_; }
  const std::string& Note() const { return note_; }

 private:
  double seconds_ = 0;
  double cpuSeconds_ = 0;
  std::string note_;
};

/// Work to measure. It starts the stopwatch after its preparations, stops it before it cleans up,
/// and returns an error text, empty when all went well.
using Work = std::function<std::string(Stopwatch&)>;

struct Figures {
  double seconds = 0;
  double cpuSeconds = 0;  ///< user and system time of the child, its own children excluded
  double peakMiB = 0;     ///< most resident memory of the child
  std::string error;
  std::string note = {};
};

/// Runs the work once in a forked child, for one minute at most.
Figures MeasureInChild(const Work& work);

}  // namespace netro::bench
