#include "platform/Clock.h"

#include <algorithm>
#include <atomic>

namespace netro {
namespace {

std::atomic<std::chrono::milliseconds::rep> g_advance{0};

}  // namespace

TimePoint Now() {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(g_advance.load());
}

void AdvanceClockForTests(std::chrono::milliseconds amount) { g_advance += amount.count(); }

TimePoint SecondsFromNow(long seconds) {
  return Now() + std::chrono::seconds(std::max(0L, seconds));
}

}  // namespace netro
