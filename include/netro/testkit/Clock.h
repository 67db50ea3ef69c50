// The clock that a test may turn forward, so that a time-out of 60 seconds takes no time. It is
// that of all waits, time-outs and timers of the library, and of its wall clock, in the whole
// program; the system's clock stays as it is. Any thread.
#pragma once

#include <netro/Export.h>

#include <chrono>

namespace netro::testkit {

/// Turns the clock forward. A thread that sleeps in a call does not notice before it wakes up: turn
/// it before the call, or in an event, a timer or a posted function of that thread.
NETRO_EXPORT void AdvanceClock(std::chrono::milliseconds Amount);

/// While one exists, time passes so many times as fast, for calls that begin later too. What a
/// server takes to answer seems that much longer: it is for tests of what never comes. There may be
/// one at a time; a second one has no effect.
class NETRO_EXPORT FastClock {
 public:
  /// From 1 on; until the end of this object.
  explicit FastClock(int TimesAsFast = 1000);
  ~FastClock();
  FastClock(const FastClock&) = delete;
  FastClock& operator=(const FastClock&) = delete;

 private:
  bool isFirst_;
};

}  // namespace netro::testkit
