// The notification window of one loop: tells socket owners what happened, on the loop's thread.
//
// Notifications follow the re-arming rules of asynchronous window notifications: Connect once; Read
// again after Receive has found nothing more; Write after the connection opened and after a Send
// that would have blocked; Accept after each Accept; Close once, and only after everything has been
// read. They are queued by Collect and handed out one socket at a time by DeliverOne.
//
// A notification is keyed by a registration number, which is never used again; the descriptor alone
// would not do, since the system gives it to the next socket.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "platform/Clock.h"
#include "platform/Sockets.h"
#include "platform/Waker.h"

namespace netro {

/// What a socket call of this system returns when it has not succeeded on the spot.
inline constexpr std::int32_t kSocketError = -1;

enum class SocketEvent : std::int32_t { Read = 1, Write = 2, Accept = 8, Connect = 16, Close = 32 };

/// The receiver of a socket's notifications; may do anything inside, closing the socket included.
class SocketWatcher {
 public:
  /// `error` belongs to Connect (0: it is open) and Close (0: orderly).
  virtual void OnSocket(std::int32_t handle, SocketEvent event, std::int32_t error) = 0;

 protected:
  ~SocketWatcher() = default;
};

class Notifier {
 public:
  Notifier();
  ~Notifier();
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;

  /// Asks the system for what is still missing. Returns the error number.
  std::int32_t Open();
  /// Readable while Collect would find something, for who asks for it; -1 when not open.
  int Fd() const;

  /// Makes Fd readable and ends a sleeping Collect. Any thread, signal-safe.
  void Wake();
  std::shared_ptr<Waker> SharedWaker() const;
  /// Does the same at a moment; TimePoint::max() switches it off.
  void SetAlarm(TimePoint when);

  /// Takes what the system has to tell, sleeping until `until` when there is nothing.
  void Collect(TimePoint until);
  std::size_t Pending() const;
  /// Hands out what is pending for one socket. With `holdReads`, its Read and Accept are kept back
  /// until TakeBackHeld.
  void DeliverOne(bool holdReads = false);
  void TakeBackHeld();
  bool HasHeld() const;
  /// Inside OnSocket: whether reads that no blocking call waits for are held back now. Who shares
  /// an awaited socket among several asks, and gets Read again with TakeBackHeld after HoldBack.
  bool HoldsReads() const;
  void HoldBack(std::int32_t handle);
  /// Never holds back this socket: a blocking call waits for what it reads.
  void SetAwaited(std::int32_t handle);

  /// Registers a socket. Streams begin to notify with Connect, listeners with Listen.
  std::int32_t Watch(std::int32_t handle, SocketKind kind, SocketWatcher& watcher);
  void Unwatch(std::int32_t handle);
  /// Queues one more Read for the next pump (for a listener: lets Accept come again).
  void Renew(std::int32_t handle);
  /// Queues one more Write for the next pump.
  void RenewWrite(std::int32_t handle);

  /// Starts to connect and returns kSocketError, which means "under way", whatever the system said:
  /// the outcome, an immediate one too, comes as a notification.
  std::int32_t Connect(std::int32_t handle, const SocketAddress& address);
  std::int32_t Listen(std::int32_t handle, int backlog);
  /// Takes the next connection, registered with the same watcher. 0 and `error` on failure.
  std::int32_t Accept(std::int32_t listener, std::int32_t& error);
  /// Bytes sent, or -1 and `error`. `to` is for datagrams.
  std::ptrdiff_t Send(std::int32_t handle, std::span<const std::uint8_t> data, std::int32_t& error,
                      const SocketAddress* to = nullptr);
  /// Write comes when there is room to send again, as after a Send that would have blocked: for
  /// sockets that tell of a full buffer in another way.
  void AwaitRoom(std::int32_t handle);
  /// Bytes received, 0 at the end (or for an empty datagram), or -1 and `error`. `from` is filled
  /// for datagrams, after which an owner who wants more asks for it with Renew.
  std::ptrdiff_t Receive(std::int32_t handle, std::span<std::uint8_t> room, std::int32_t& error,
                         SocketAddress* from = nullptr);
  /// Room for any datagram, shared by all who copy what they got before they call out.
  std::span<std::uint8_t> DatagramRoom();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace netro
