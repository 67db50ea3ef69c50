// Ends the sleep of a loop from any thread or signal handler. Shared, so that a helper thread that
// is late may use it when the loop itself is gone.
#pragma once

#include <atomic>

namespace netro {

class Waker {
 public:
  Waker() = default;
  ~Waker();
  Waker(const Waker&) = delete;
  Waker& operator=(const Waker&) = delete;

  /// Asks the system for a descriptor; -1 when it has none left.
  int Open();
  /// Makes the descriptor readable. Any thread, signal-safe.
  void Wake();
  /// Makes it unreadable again, on the loop's thread.
  void Clear();

 private:
  std::atomic<int> descriptor_{-1};
  std::atomic<bool> woken_{false};
};

}  // namespace netro
