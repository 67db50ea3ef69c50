// A list that grows at its head by compare and exchange and is taken as a whole, so that a signal
// handler may interrupt any step of it.
#include "platform/Wakeups.h"

namespace netro {
namespace {

// Stands at the head of a list that takes nothing any more.
class Closed final : public Wakeable {
  void Woken() noexcept override {}
} g_closed;

}  // namespace

void Wakeups::Push(Wakeable& object) {
  if (!object.pushed_.exchange(true)) {
    object.self_ = object.shared_from_this();
    Wakeable* first = first_;
    do {
      if (first == &g_closed) {
        TakeOut(first = &object);
        return;
      }
      object.next_ = first;
    } while (!first_.compare_exchange_weak(first, &object));
  }
  waker_->Wake();
}

void Wakeups::PushAll() {
  all_ = true;
  waker_->Wake();
}

bool Wakeups::Deliver() {
  if (first_ != nullptr && first_ != &g_closed) {
    Wakeable* first = first_.exchange(nullptr);
    while (first != nullptr) TakeOut(first)->Woken();
  }
  return all_ && all_.exchange(false);
}

void Wakeups::Close() {
  Wakeable* first = first_.exchange(&g_closed);
  while (first != nullptr && first != &g_closed) TakeOut(first);
}

// From here on the object may be pushed again, by any thread.
std::shared_ptr<Wakeable> Wakeups::TakeOut(Wakeable*& first) {
  Wakeable& object = *first;
  first = object.next_;
  auto self = std::move(object.self_);
  object.pushed_ = false;
  return self;
}

}  // namespace netro
