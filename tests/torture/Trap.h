// What a host's function may throw, and a trap that throws it once, at a chosen moment.
#pragma once

#include <netro/MessageLoop.h>

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

#include "platform/Clock.h"

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

  /// Whether it has thrown since it was set.
  bool IsSprung() const { return set_ && set_->left < 0; }

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

}  // namespace netro
