// What the tests of the DNS client share: a client that is pointed at a scripted server, and a
// clock that runs while the client waits.
#pragma once

#include <netro/MessageLoop.h>
#include <netro/QueryDNSCLS.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "platform/Clock.h"
#include "tests/peers/DnsServer.h"

namespace netro {

/// Asks for `domain` at a port of 127.0.0.1, once.
inline void PointAt(QueryDNSCLS& dns, int port, QueryEnum type = TYPE_A,
                    const std::string& domain = "www.test") {
  dns.DNSServer("127.0.0.1");
  dns.DNSPort(port);
  dns.Domain(domain);
  dns.QueryType(type);
  dns.RetryCount(1);
}

/// Advances the clock by a tenth of a second with each turn of the loop in which `when()` is true,
/// until the budget is spent.
class RunningClock {
 public:
  using Milliseconds = std::chrono::milliseconds;

  explicit RunningClock(std::function<bool()> when, Milliseconds budget = std::chrono::hours(1))
      : state_(std::make_shared<State>(State{std::move(when), budget, true})) {
    Turn(state_);
  }
  ~RunningClock() { state_->running = false; }
  RunningClock(const RunningClock&) = delete;
  RunningClock& operator=(const RunningClock&) = delete;

 private:
  struct State {
    std::function<bool()> when;
    Milliseconds left;
    bool running;
  };

  static void Turn(const std::shared_ptr<State>& state) {
    MessageLoop::ForThisThread().PostTask([state] {
      if (!state->running || state->left <= Milliseconds(0)) return;
      Turn(state);
      if (!state->when()) return;
      AdvanceClockForTests(Milliseconds(100));
      state->left -= Milliseconds(100);
    });
  }

  std::shared_ptr<State> state_;
};

/// Calls `action` once, from the loop, as soon as `when()` is true.
inline void PostWhen(std::function<bool()> when, std::function<void()> action) {
  MessageLoop::ForThisThread().PostTask([when = std::move(when), action = std::move(action)] {
    if (when()) return action();
    PostWhen(when, action);
  });
}

}  // namespace netro
