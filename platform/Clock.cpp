#include "platform/Clock.h"

#include <algorithm>
#include <atomic>
#include <mutex>

#include "support/DateText.h"

namespace netro {
namespace {

std::atomic<std::chrono::nanoseconds::rep> g_advance{0};
std::atomic<int> g_rate{1};
std::mutex g_mutex;  // while the rate is another
TimePoint g_since;   // when it began, guarded by g_mutex

/// What the clocks are ahead of the system's.
std::chrono::nanoseconds Ahead(TimePoint system) {
  if (g_rate.load() == 1) return std::chrono::nanoseconds(g_advance.load());
  const std::lock_guard lock(g_mutex);
  return std::chrono::nanoseconds(g_advance.load()) +
         std::max(system - g_since, TimePoint::duration(0)) * (g_rate.load() - 1);
}

}  // namespace

TimePoint Now() {
  const TimePoint system = std::chrono::steady_clock::now();
  return system + Ahead(system);
}

std::chrono::sys_time<std::chrono::nanoseconds> SystemTime() {
  return std::chrono::system_clock::now() + Ahead(std::chrono::steady_clock::now());
}

std::chrono::nanoseconds SleepFor(std::chrono::nanoseconds time) { return time / g_rate.load(); }

Date WallClock() { return ToDate(std::chrono::floor<std::chrono::milliseconds>(SystemTime())); }

LocalDate LocalClock() {
  const auto now = SystemTime();
  const std::chrono::seconds zone = LocalTimeOffset(now);
  return {ToDate(std::chrono::floor<std::chrono::milliseconds>(now + zone)), zone};
}

// The zone of the date taken for UTC is right but for a change of the clock in between; the zone of
// the moment that it leads to is right then.
LocalDate AtLocalTime(Date date) {
  const auto time = ToTime(date);
  if (!time) return {date};
  // Nanoseconds reach no further.
  constexpr std::chrono::sys_days kFirst = std::chrono::year(1700) / 1 / 1;
  constexpr std::chrono::sys_days kLast = std::chrono::year(2250) / 1 / 1;
  const auto local =
      std::clamp<std::chrono::sys_time<std::chrono::milliseconds>>(*time, kFirst, kLast);
  return {date, LocalTimeOffset(local - LocalTimeOffset(local))};
}

void AdvanceClockForTests(std::chrono::milliseconds amount) {
  g_advance += std::chrono::nanoseconds(amount).count();
}

bool SetClockRateForTests(int timesAsFast) {
  const std::lock_guard lock(g_mutex);
  if (timesAsFast != 1 && g_rate.load() != 1) return false;
  const TimePoint system = std::chrono::steady_clock::now();
  g_advance += ((system - g_since) * (g_rate.load() - 1)).count();
  g_since = system;
  g_rate = timesAsFast;
  return true;
}

TimePoint SecondsFromNow(long seconds) {
  return Now() + std::chrono::seconds(std::max(0L, seconds));
}

TimePoint MillisecondsFromNow(std::chrono::milliseconds time) {
  using std::chrono::milliseconds;
  const TimePoint now = Now();
  const auto most = std::chrono::floor<milliseconds>(TimePoint::max() - now);
  return time >= most ? TimePoint::max() : now + std::max(time, milliseconds(0));
}

}  // namespace netro
