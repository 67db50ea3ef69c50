// What other threads and signal handlers have to tell a loop: that something has happened to an
// object which a task of the loop may be waiting for. Shared, so that whoever is late finds it when
// the loop itself is gone.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "platform/Waker.h"

namespace netro {

class Wakeable : public std::enable_shared_from_this<Wakeable> {
 public:
  virtual ~Wakeable() = default;

 private:
  friend class Wakeups;

  /// On the loop's thread, soon after Push.
  virtual void Woken() noexcept = 0;

  std::atomic<bool> pushed_{false};
  Wakeable* next_ = nullptr;
  std::shared_ptr<Wakeable> self_;  // while it is in the list
};

class Wakeups {
 public:
  explicit Wakeups(std::shared_ptr<Waker> waker) : waker_(std::move(waker)) {}

  /// Has `object` woken by the next pump. Any thread, signal-safe; the caller holds the object.
  void Push(Wakeable& object);
  /// The same for everything that sleeps.
  void PushAll();

  /// On the loop's thread: wakes what was pushed. True when that was everything.
  bool Deliver();
  /// Lets go of what was pushed and takes nothing more: nobody will deliver it.
  void Close();

 private:
  static std::shared_ptr<Wakeable> TakeOut(Wakeable*& first);

  const std::shared_ptr<Waker> waker_;
  std::atomic<Wakeable*> first_{nullptr};
  std::atomic<bool> all_{false};
};

}  // namespace netro
