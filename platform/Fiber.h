// A function that runs on a stack of its own, on the thread that made it: it can stop anywhere and
// go on later. Nothing but the stack is changed by a switch: the thread, and with it everything
// thread_local, is the same on both sides, except for the exceptions that are being handled, of
// which each side has its own.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace netro {

class Fiber {
 public:
  static constexpr std::size_t kSmallestStack = std::size_t{64} << 10;

  /// One with at least `stackSize` bytes of stack; null when the system has no memory for it. Pages
  /// are taken as they are used. Below the stack is a guard on which a stack that overflows dies.
  static std::unique_ptr<Fiber> Make(std::size_t stackSize);
  /// What stands on the stack of a function that has not come to its end is dropped, not destroyed.
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  /// Has `work` run with the next Resume, from the beginning. Only while IsOver. It must not throw.
  void Begin(std::function<void()> work);
  /// Runs the work until it calls Suspend or comes to its end. Not from inside this fiber.
  void Resume();
  /// Goes back to whom has called Resume. Only from inside.
  void Suspend();
  /// True when there is no work, or it has come to its end.
  bool IsOver() const;

  /// Gives back the memory of a stack that was once deep. Only while IsOver.
  void Trim();

 private:
  struct State;
  explicit Fiber(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

}  // namespace netro
