// What a blocking call holds of its object: whether the object still lives, was told to stop, and
// is inside a call; and what waits inside it. Shared by the object and its running calls, so that
// it outlives a deletion.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/Loop.h"
#include "platform/LoopUse.h"
#include "platform/Wakeups.h"

namespace netro {

class RunningWait;

struct CallState final : Wakeable {
  /// Of an object of the calling thread.
  CallState() : use(Loop::ForThread()->Use()) {}

  const std::shared_ptr<LoopUse> use;   // of the loop that the object belongs to
  std::atomic<std::uint32_t> stops{0};  // grows with each Stop; any thread
  bool alive = true;
  bool busy = false;

  /// Ends the running calls with 9999. Any thread, signal-safe.
  void Stop(Loop& loop) {
    ++stops;
    loop.Notify(*this);
  }
  /// The object goes.
  void Die() {
    alive = false;
    Changed();
  }
  /// Something has happened that a call may be waiting for: the tasks that sleep in one are looked
  /// at. Who waits outside of tasks looks after each pump by itself.
  void Changed() noexcept;

  /// While there is one, events of the object are running on the loop's stack. They may wait, and
  /// what they belong to must outlive them; so a call that sleeps in a task does not return before,
  /// as none does that waits below them.
  class Events {
   public:
    explicit Events(std::shared_ptr<CallState> state) : state_(std::move(state)) {
      if (state_ != nullptr) ++state_->events_;
    }
    ~Events() {
      if (state_ == nullptr) return;
      --state_->events_;
      state_->Changed();
    }
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

   private:
    const std::shared_ptr<CallState> state_;
  };
  bool HasEvents() const { return events_ > 0; }

 private:
  friend class RunningWait;
  void Woken() noexcept override { Changed(); }

  RunningWait* waits_ = nullptr;
  int events_ = 0;
};

/// Marks an object as being inside a blocking call. `Refused` when it already is, when so many
/// calls of the thread wait one inside the other that this one would be too much, or when another
/// thread uses the object's loop; then nothing of the object may be touched.
class BusyScope {
 public:
  explicit BusyScope(std::shared_ptr<CallState> state)
      : state_(std::move(state)),
        use_(state_->use),
        entered_(!use_.Refused() && !Loop::ForThread()->IsTooDeep() &&
                 !std::exchange(state_->busy, true)) {}
  ~BusyScope() { Leave(); }
  BusyScope(const BusyScope&) = delete;
  BusyScope& operator=(const BusyScope&) = delete;

  bool Refused() const { return !entered_; }
  bool WrongThread() const { return use_.Refused(); }
  /// The number of the refusal.
  std::int32_t Error() const { return WrongThread() ? kErrOtherThread : kErrInProgress; }
  /// Ends the marking early: what still runs does not mind another call on the object.
  void Leave() {
    if (std::exchange(entered_, false)) state_->busy = false;
  }

 private:
  std::shared_ptr<CallState> state_;
  const LoopUse::Scope use_;
  bool entered_;
};

}  // namespace netro
