#include "platform/Clock.h"

#include <algorithm>
#include <atomic>

#include "support/DateText.h"

namespace netro {
namespace {

std::atomic<std::chrono::milliseconds::rep> g_advance{0};

}  // namespace

TimePoint Now() {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(g_advance.load());
}

std::chrono::sys_time<std::chrono::nanoseconds> SystemTime() {
  return std::chrono::system_clock::now() + std::chrono::milliseconds(g_advance.load());
}

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

void AdvanceClockForTests(std::chrono::milliseconds amount) { g_advance += amount.count(); }

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
