// What the component testkit turns the library's clock with; programs use <netro/testkit/Clock.h>.
#pragma once

#include <netro/Export.h>

#include <chrono>

namespace netro {

/// Moves the clock of every wait and the wall clock forward. Any thread.
NETRO_EXPORT void AdvanceClockForTests(std::chrono::milliseconds Amount);

/// From now on, time passes so many times as fast; 1 is the time of the system. False when it is
/// not 1 already and is to be another again. Any thread.
NETRO_EXPORT bool SetClockRateForTests(int TimesAsFast);

}  // namespace netro
