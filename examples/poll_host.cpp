// A host with a poll loop of its own, which watches the library's loop as one descriptor among its
// others and keeps a timer that ticks every 10 ms.
//
// This is a self-check: 20 pages and 100 names are asked for at once, see ManyCalls.h.
#include <netro/MessageLoop.h>
#include <poll.h>

#include <algorithm>
#include <chrono>

#include "ManyCalls.h"

using Clock = std::chrono::steady_clock;

int MillisecondsUntil(Clock::time_point when) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now()).count();
  return static_cast<int>(std::max(left, decltype(left){0}));
}

int main() {
  bool running = true;
  ManyCalls calls([&running] { running = false; });

  netro::MessageLoop& library = netro::MessageLoop::ForThisThread();
  pollfd watched[] = {{library.LoopFd(), POLLIN, 0}};
  Clock::time_point nextTick = Clock::now() + ManyCalls::kTick;
  while (running) {
    if (poll(watched, 1, MillisecondsUntil(nextTick)) < 0) return 1;
    if (watched[0].revents != 0) library.PumpMessages();
    if (Clock::now() < nextTick) continue;
    calls.Tick();
    nextTick = std::max(nextTick + ManyCalls::kTick, Clock::now());
  }
  return calls.Result();
}
