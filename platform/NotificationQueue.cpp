#include "platform/NotificationQueue.h"

#include <iterator>
#include <utility>

namespace netro {
namespace {

constexpr struct {
  unsigned bit;
  SocketEvent event;
} kOrder[] = {
    {kConnect, SocketEvent::Connect}, {kWrite, SocketEvent::Write}, {kAccept, SocketEvent::Accept},
    {kRead, SocketEvent::Read},       {kClose, SocketEvent::Close},
};

// What pumps inside an event set is put right after it.
class Holding {
 public:
  Holding(bool& holds, bool now) : holds_(holds), before_(std::exchange(holds, now)) {}
  ~Holding() { holds_ = before_; }
  Holding(const Holding&) = delete;
  Holding& operator=(const Holding&) = delete;

 private:
  bool& holds_;
  const bool before_;
};

}  // namespace

NotificationQueue::Registration& NotificationQueue::Add(std::int32_t handle, SocketKind kind,
                                                        SocketWatcher& watcher) {
  Registration added;
  added.number = ++serial_ << 32 | static_cast<std::uint32_t>(handle);
  added.place = added.heldPlace = {added.number};
  added.handle = handle;
  added.kind = kind;
  added.watcher = &watcher;
  return sockets_[handle] = std::move(added);
}

void NotificationQueue::End(Registration& of, std::int32_t error) {
  of.readable = false;
  if (of.ended || of.kind != SocketKind::Stream) return;
  of.ended = true;
  if (of.closeError == 0) of.closeError = error;
  Queue(of, kClose);
}

void NotificationQueue::DeliverOne(bool holdReads) {
  if (queue_.empty()) return;
  const std::uint64_t number = queue_.front();
  Registration* of = FindNumber(number);
  if (of == nullptr) return queue_.pop_front();
  of->place.splice(of->place.end(), queue_, queue_.begin());
  for (const auto& [bit, event] : kOrder) {
    if ((of->pending & bit) == 0) continue;
    if (holdReads && !of->awaited && (bit & (kRead | kAccept)) != 0) return Hold(*of);
    of->pending &= ~bit;
    // What is left goes back to the queue first: the function called may wait for it.
    if (of->pending != 0) Queue(*of, 0);
    const Holding holding(holdsReads_, holdReads);
    of->watcher->OnSocket(of->handle, event, bit == kClose ? of->closeError : of->connectError);
    of = FindNumber(number);
    if (of == nullptr || of->pending == 0) break;
  }
  // Nobody should be woken for what has gone back and was then delivered all the same.
  if (of != nullptr && of->place.empty() && of->pending == 0 && queue_.back() == number) {
    of->place.splice(of->place.end(), queue_, std::prev(queue_.end()));
  }
}

void NotificationQueue::TakeBackHeld() {
  while (!held_.empty()) {
    Registration* of = FindNumber(held_.front());
    if (of == nullptr) {
      held_.pop_front();
    } else {
      of->heldPlace.splice(of->heldPlace.end(), held_, held_.begin());
      Queue(*of, 0);
    }
  }
}

void NotificationQueue::HoldBack(std::int32_t handle) {
  Registration* of = Find(handle);
  if (of == nullptr) return;
  of->pending |= kRead;
  Hold(*of);
}

}  // namespace netro
