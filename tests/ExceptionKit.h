// What the tests of exceptions share: a trap that throws once, a sink for it, and pumping in spite
// of it.
#pragma once

#include <gtest/gtest.h>
#include <netro/MessageLoop.h>
#include <netro/WatchpostCls.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "SocketTestKit.h"
#include "platform/Clock.h"
#include "tests/torture/AllEvents.h"

namespace netro {

inline MessageLoop& ThisLoop() { return MessageLoop::ForThisThread(); }

struct Thrown {};

/// True when the call ends with a Thrown.
inline bool Throws(const std::function<void()>& call) {
  try {
    call();
    return false;
  } catch (const Thrown&) {
    return true;
  }
}

/// Pumps until `done()`; returns how many exceptions came out.
inline int PumpThrough(const std::function<bool()>& done) {
  int thrown = 0;
  while (Throws([&] { EXPECT_TRUE(PumpUntil(done)); })) ++thrown;
  return thrown;
}

/// Throws once, at the moment that it is set to.
class Trap {
 public:
  enum Moment { kEvent, kTask, kTimer, kHostPump };

  ~Trap() { Clear(); }

  /// After so many passes of that moment; calls `first` before.
  void Set(Moment moment, int passes, std::function<void()> first = nullptr) {
    set_ = std::make_shared<State>(State{moment, passes, std::move(first)});
    if (moment == kTask) Post(set_);
    if (moment == kTimer) {
      timer_ = ThisLoop().SetTimer(1, [state = set_] { Pass(*state); });
      AdvanceClockForTests(std::chrono::milliseconds(2));
    }
    if (moment == kHostPump) ThisLoop().SetHostPump([state = set_] { Pass(*state); });
  }
  void Clear() {
    if (!set_) return;
    set_->left = -1;
    set_ = nullptr;
    ThisLoop().KillTimer(std::exchange(timer_, 0));
    ThisLoop().SetHostPump(nullptr);
  }

  /// Of a sink.
  void Event() {
    ++events;
    const auto state = set_;  // the sink may go
    if (state && state->moment == kEvent) Pass(*state);
  }
  int events = 0;

 private:
  struct State {
    Moment moment;
    int left;
    std::function<void()> first;
  };

  static void Pass(State& state) {
    if (state.left < 0 || state.left-- > 0) return;
    if (state.first) state.first();
    throw Thrown();
  }
  static void Post(const std::shared_ptr<State>& state) {
    ThisLoop().PostTask([state] {
      Pass(*state);
      if (state->left >= 0) Post(state);
    });
  }

  std::shared_ptr<State> set_;
  std::int32_t timer_ = 0;
};

/// Every sink there is.
class Sink : public torture::AllEvents, public WatchpostClsEvents {
 public:
  explicit Sink(Trap& trap) : trap_(trap) {}

  std::function<void(const std::string& line)> onLine = [](const std::string&) {};
  int rounds = 0;

  void DisplayProtocol(const std::string& line) override {
    onLine(line);
    Event();
  }
  void Alert(const std::string&, std::int32_t, bool, const std::string&, const std::string&,
             const std::string&) override {
    Event();
  }
  void OnTheHunt(bool) override { Event(); }
  void Probed(std::int32_t) override { Event(); }
  void RoundEnded() override {
    ++rounds;
    Event();
  }

 private:
  void Event() override { trap_.Event(); }

  Trap& trap_;
};

}  // namespace netro
