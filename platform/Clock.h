// The clock of every wait, which never goes back and knows no midnight, and the wall clock for what
// outlives the program. Any thread.
#pragma once

#include <netro/Types.h>

#include <chrono>

namespace netro {

using TimePoint = std::chrono::steady_clock::time_point;

/// The present moment, plus what tests have advanced the clock by.
TimePoint Now();

/// The present time (UTC), plus what tests have advanced it by. It follows when the system's clock
/// is set.
std::chrono::sys_time<std::chrono::nanoseconds> SystemTime();

/// What the local time zone adds to UTC at that moment.
std::chrono::seconds LocalTimeOffset(std::chrono::sys_time<std::chrono::nanoseconds> time);

/// The present date and time (UTC) in whole milliseconds.
Date WallClock();

/// Moves both clocks: lets a test pass a 60-second time-out without waiting for it.
void AdvanceClockForTests(std::chrono::milliseconds amount);

/// The moment `seconds` from now; a negative number counts as 0.
TimePoint SecondsFromNow(long seconds);

}  // namespace netro
