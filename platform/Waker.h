// Ends the sleep of a loop from any thread or signal handler. Shared, so that a helper thread that
// is late may use it when the loop itself is gone.
#pragma once

#include <atomic>
#include <cstdint>

namespace netro {

class Waker {
 public:
  Waker() = default;
  ~Waker();
  Waker(const Waker&) = delete;
  Waker& operator=(const Waker&) = delete;

  /// Asks the system for what it wakes the loop with, on the loop's thread, which then owns it; -1
  /// when there is none left.
  std::intptr_t Open();
  /// Ends the sleep. Any thread, signal-safe.
  void Wake();
  /// Is ready for the next one, on the loop's thread.
  void Clear();

 private:
  std::atomic<std::intptr_t> handle_{-1};  // a descriptor, or a window
  std::atomic<bool> woken_{false};
};

}  // namespace netro
