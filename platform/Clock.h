// The clock of every wait, which never goes back and knows no midnight, and the wall clock for what
// outlives the program. Any thread.
#pragma once

#include <netro/TestClock.h>
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

/// A date in local time, and what the local time zone adds to UTC then.
struct LocalDate {
  Date date = 0;
  std::chrono::seconds zone{0};
};

/// The present date and time in whole milliseconds.
LocalDate LocalClock();

/// Finds the zone for a date in local time. In the hour that is repeated or left out when the clock
/// is changed, it is that of one of the two sides. Zero outside the years 0 to 9999.
LocalDate AtLocalTime(Date date);

/// How long a thread has to sleep for so much of that time, which tests may have made faster; never
/// more than that.
std::chrono::nanoseconds SleepFor(std::chrono::nanoseconds time);

/// The moment `seconds` from now; a negative number counts as 0.
TimePoint SecondsFromNow(long seconds);
/// The same for any time; what the clock can not hold is its end.
TimePoint MillisecondsFromNow(std::chrono::milliseconds time);

}  // namespace netro
