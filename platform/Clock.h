// The clock of every wait: it never goes back and knows no midnight. Any thread.
#pragma once

#include <chrono>

namespace netro {

using TimePoint = std::chrono::steady_clock::time_point;

/// The present moment, plus what tests have advanced the clock by.
TimePoint Now();

/// Lets a test pass a 60-second time-out without waiting for it.
void AdvanceClockForTests(std::chrono::milliseconds amount);

/// The moment `seconds` from now; a negative number counts as 0.
TimePoint SecondsFromNow(long seconds);

}  // namespace netro
