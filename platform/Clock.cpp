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

void AdvanceClockForTests(std::chrono::milliseconds amount) { g_advance += amount.count(); }

TimePoint SecondsFromNow(long seconds) {
  return Now() + std::chrono::seconds(std::max(0L, seconds));
}

}  // namespace netro
