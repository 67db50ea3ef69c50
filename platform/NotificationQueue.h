// What a notification window knows of its sockets, and who is told next: registrations, the queue
// of those with something pending, and the reads that are held back. The part of a Notifier that is
// the same on every system: the system's side notes what it was told and queues it here. Lives on
// its loop's thread.
//
// Order for one socket: Connect, Write, Accept, Read, Close.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>

#include "platform/Notifier.h"

namespace netro {

enum PendingBit : unsigned {
  kConnect = 1,
  kWrite = 2,
  kAccept = 4,
  kRead = 8,
  kClose = 16,
};

class NotificationQueue {
  // A line of registration numbers in which everyone has brought his own place, so that nobody is
  // forgotten where memory has run out.
  using Line = std::list<std::uint64_t>;

 public:
  struct Registration {
    std::uint64_t number = 0;
    Line place;      // in the queue, while not queued
    Line heldPlace;  // among the held, while not held
    std::int32_t handle = 0;
    SocketKind kind = SocketKind::Stream;
    SocketWatcher* watcher = nullptr;
    bool connecting = false;
    bool readable = false;
    bool readToEnd = false;  // a short read does not tell that nothing is left
    bool awaited = false;    // a blocking call ends by its reads
    bool wantsWrite = false;
    bool ended = false;  // Close has been queued
    unsigned pending = 0;
    std::int32_t connectError = 0;
    std::int32_t closeError = 0;
  };

  NotificationQueue() = default;
  NotificationQueue(const NotificationQueue&) = delete;
  NotificationQueue& operator=(const NotificationQueue&) = delete;

  /// The number of a registration holds the handle for the look-up and a serial that tells its
  /// users apart. Serials start at 1, so the small numbers are free for the system's side.
  Registration& Add(std::int32_t handle, SocketKind kind, SocketWatcher& watcher);
  /// False when there is none.
  bool Remove(std::int32_t handle) { return sockets_.erase(handle) > 0; }
  std::size_t Sockets() const { return sockets_.size(); }

  Registration* Find(std::int32_t handle) {
    const auto found = sockets_.find(handle);
    return found == sockets_.end() ? nullptr : &found->second;
  }
  Registration* FindNumber(std::uint64_t number) {
    Registration* found = Find(static_cast<std::int32_t>(number & 0xFFFFFFFF));
    return found != nullptr && found->number == number ? found : nullptr;
  }

  void Queue(Registration& to, unsigned bits) {
    to.pending |= bits;
    queue_.splice(queue_.end(), to.place);
  }
  /// The peer is gone and nothing is left to read.
  void End(Registration& of, std::int32_t error);

  std::size_t Pending() const { return queue_.size(); }
  // As those of Notifier.
  void DeliverOne(bool holdReads);
  void TakeBackHeld();
  bool HasHeld() const { return !held_.empty(); }
  bool HoldsReads() const { return holdsReads_; }
  void HoldBack(std::int32_t handle);

 private:
  void Hold(Registration& of) { held_.splice(held_.end(), of.heldPlace); }

  std::uint64_t serial_ = 0;
  std::unordered_map<std::int32_t, Registration> sockets_;
  Line queue_;  // those with something pending
  bool holdsReads_ = false;
  Line held_;  // those whose reads wait for the pumps to be less nested
};

}  // namespace netro
