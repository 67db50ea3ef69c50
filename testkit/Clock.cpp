#include <netro/TestClock.h>
#include <netro/testkit/Clock.h>

#include <algorithm>

namespace netro::testkit {

void AdvanceClock(std::chrono::milliseconds Amount) { AdvanceClockForTests(Amount); }

FastClock::FastClock(int TimesAsFast)
    : isFirst_(SetClockRateForTests(std::clamp(TimesAsFast, 2, 1'000'000))) {}

FastClock::~FastClock() {
  if (isFirst_) SetClockRateForTests(1);
}

}  // namespace netro::testkit
