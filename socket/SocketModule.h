// SocketModule: what all sockets of one thread share: the registry of live objects, the start-up
// counter of the network stack, the cancel and send-blocked flags, and the dispatch of
// notifications to objects. One per thread that uses the library; each socket keeps its module
// alive.
#pragma once

#include <netro/Types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <unordered_set>

#include "platform/HostInfo.h"
#include "platform/Loop.h"
#include "socket/DatagramPool.h"

namespace netro {

class EchoSockets;
class SocketCls;

class SocketModule final : public SocketWatcher {
 public:
  explicit SocketModule(std::shared_ptr<Loop> loop);
  ~SocketModule();
  SocketModule(const SocketModule&) = delete;
  SocketModule& operator=(const SocketModule&) = delete;

  static const std::shared_ptr<SocketModule>& ForThread();

  void ThreadEnds() {}

  Loop& MessageLoop() { return *loop_; }
  const std::shared_ptr<Loop>& SharedLoop() const { return loop_; }
  Notifier& Notifications() { return loop_->Notifications(); }
  /// Sockets of the exchanges whose replies tell what they answer.
  DatagramPool& Datagrams() { return datagrams_; }
  /// Those of all echo requests of the thread.
  EchoSockets& Echoes() { return *echoes_; }

  /// Counts one more user of the network stack, starting it for the first. Returns the error
  /// number; nothing is counted on failure. `counted` is set when CleanUp must be called for it.
  std::int32_t StartUp(bool& counted);
  void CleanUp();
  std::int16_t StartUpCount() const { return startUps_; }
  /// What the network stack tells; nothing before it was started.
  StackFacts Facts() const;

  void Register(SocketCls& socket) { sockets_.insert(&socket); }
  void Unregister(SocketCls& socket);
  bool IsRegistered(const SocketCls& socket) const;
  std::size_t SocketCount() const { return sockets_.size(); }
  /// Tells which object's handle this is now, or with null that it is nobody's.
  void SetOwner(std::int32_t handle, SocketCls* socket);

  /// Sets the cancel flag and ends every wait of the thread. Any thread, signal-safe.
  void Kill();
  bool CancelFlag() const { return cancel_; }
  void ClearCancelFlag() { cancel_ = false; }
  bool SendBlocked() const { return sendBlocked_; }
  void SendBlocked(bool value) { sendBlocked_ = value; }

  void OnSocket(std::int32_t handle, SocketEvent event, std::int32_t error) override;
  /// Closes a socket that was connecting, and tells it.
  void ConnectFailed(SocketCls& socket, std::int32_t error);

 private:
  class Told;

  SocketCls* Owner(std::int32_t handle) const;
  void Connected(SocketCls& socket, std::int32_t handle, std::int32_t error);
  void Drain(SocketCls& socket);
  bool ReceiveOnce(SocketCls& socket, bool& more);
  bool ReceiveProtected(SocketCls& socket);
  void PumpInDrain(SocketCls& socket);

  std::shared_ptr<Loop> loop_;
  DatagramPool datagrams_;
  const std::unique_ptr<EchoSockets> echoes_;
  std::unordered_set<const SocketCls*> sockets_;
  std::unordered_map<std::int32_t, SocketCls*> owners_;
  std::int16_t startUps_ = 0;
  std::atomic<bool> cancel_{false};
  bool sendBlocked_ = false;
  int pumpsInDrain_ = 0;
  // Of each Receive; what it took is copied before the call out, so nested reads can share it.
  std::array<std::uint8_t, 16'000> room_;
  Bytes block_;  // the last one delivered; its memory serves for the next one
};

}  // namespace netro
