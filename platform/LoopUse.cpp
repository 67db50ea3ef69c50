#include "platform/LoopUse.h"

#include "platform/ErrorNumbers.h"
#include "platform/Loop.h"

namespace netro {
namespace {

thread_local std::int32_t t_refusal = 0;

}  // namespace

static_assert(std::atomic<std::thread::id>::is_always_lock_free);

std::int32_t LoopUse::LastRefusal() { return t_refusal; }

LoopUse::Scope::Kind LoopUse::Enter() noexcept {
  const std::thread::id self = std::this_thread::get_id();
  std::thread::id user = user_.load(std::memory_order_relaxed);
  if (user != self) {
    if (!checks_.load(std::memory_order_relaxed)) return Scope::Kind::Unchecked;
    // A task sleeps in the loop of its own thread; waiting in another one would hold all of it.
    const Loop* const own = Loop::OfRunningTask();
    user = {};
    // What the thread before has left is seen by this one.
    if ((own != nullptr && own->Use().get() != this) ||
        !user_.compare_exchange_strong(user, self, std::memory_order_acquire)) {
      t_refusal = kErrOtherThread;
      return Scope::Kind::Refused;
    }
    t_refusal = 0;
  }
  ++depth_;
  return Scope::Kind::Counted;
}

}  // namespace netro
