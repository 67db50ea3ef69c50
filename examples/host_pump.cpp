// A blocking call that does not freeze its program. HTTPQuery waits a second for a slow server; the
// function given to SetHostPump turns the host's own loop once, here every millisecond, so that the
// host's timer ticks on as if nobody waited.
//
// This is a self-check: it ends with 0 when the answer came and the timer, which is due every 10
// ms, ticked as it does without a call.
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "LateServers.h"
#include "TickCount.h"

namespace {

using std::chrono::milliseconds;

/// A program with a loop of its own, in which nothing but a timer is due.
class Host {
 public:
  void TurnOnce() {
    if (TickCount::Clock::now() < nextTick_) return;
    nextTick_ = std::max(nextTick_ + milliseconds(10), TickCount::Clock::now());
    ticks.Tick();
  }

  TickCount ticks;

 private:
  TickCount::Clock::time_point nextTick_ = TickCount::Clock::now();
};

bool WaitForPage(const std::string& url) {
  netro::HTTPCls http;
  http.URL(url);
  bool timeout = false;
  return http.HTTPQuery(timeout).ends_with("\r\n\r\n" + LateServers::Page(1));
}

}  // namespace

int main() {
  LateServers servers;
  Host host;
  netro::MessageLoop::ForThisThread().SetHostPump([&host] { host.TurnOnce(); }, milliseconds(1));

  bool passed = false;
  for (int round = 0; round < TickCount::kMostRounds && !passed; ++round) {
    host.ticks.Begin();
    while (host.ticks.Seconds() < 1) {
      std::this_thread::sleep_for(milliseconds(1));
      host.TurnOnce();
    }
    const double alone = host.ticks.PerSecond();

    host.ticks.Begin();
    const bool answered = WaitForPage(servers.URL(1));
    std::printf("%s; %.1f ticks a second before, %.1f meanwhile\n",
                answered ? "The page has come" : "No page", alone, host.ticks.PerSecond());
    passed = answered && host.ticks.IsAsGoodAs(alone);
  }
  return passed ? 0 : 1;
}
