// The spine: start-up counting, the registry, and the dispatch of notifications to socket objects.
//
// A notification finds its object by handle and is turned into one WindowProc call; only reading is
// more. One read notification drains the socket: pump once, look at the cancel flag, receive at
// most 16,000 bytes, deliver, again until nothing is left. The pump gives other sockets, timers and
// StopWaiting their turn in between. A peer that sends faster than the owner reads would keep that
// loop for ever, and the deadline of the blocking call below it would never be looked at; so after
// kChunksPerTurn blocks, or kTurn, the rest is left to a new notification at the end of the queue.
//
// Every call out may delete the object, close it, or open another connection on it. After each one
// the loop goes on only if the object lives and the connection is still the same.
#include "socket/SocketModule.h"

#include <netro/SocketCls.h>

#include <algorithm>
#include <array>
#include <limits>

#include "platform/CallState.h"
#include "platform/Echo.h"
#include "platform/ErrorNumbers.h"
#include "platform/PerThread.h"
#include "socket/ConnectRace.h"
#include "support/OnException.h"

namespace netro {
namespace {

constexpr int kChunksPerTurn = 64;
constexpr int kChunksForSure = 8;  // however slow the owner is
constexpr std::chrono::milliseconds kTurn(5);

}  // namespace

SocketModule::SocketModule(std::shared_ptr<Loop> loop)
    : loop_(std::move(loop)),
      datagrams_(loop_->Notifications()),
      echoes_(std::make_unique<EchoSockets>(loop_->Notifications())) {}

SocketModule::~SocketModule() = default;

const std::shared_ptr<SocketModule>& SocketModule::ForThread() {
  return PerThread<SocketModule>([] { return std::make_shared<SocketModule>(Loop::ForThread()); });
}

std::int32_t SocketModule::StartUp(bool& counted) {
  counted = false;
  if (startUps_ == 0) {
    if (const std::int32_t error = Notifications().Open()) return error;
  }
  if (startUps_ == std::numeric_limits<std::int16_t>::max()) return 0;
  ++startUps_;
  counted = true;
  return 0;
}

void SocketModule::CleanUp() {
  if (startUps_ > 0) --startUps_;
}

StackFacts SocketModule::Facts() const { return startUps_ == 0 ? StackFacts() : ReadStackFacts(); }

bool SocketModule::IsRegistered(const SocketCls& socket) const {
  return sockets_.contains(&socket);
}

void SocketModule::Unregister(SocketCls& socket) {
  sockets_.erase(&socket);
  owners_.erase(socket.socketHandle_);
}

void SocketModule::SetOwner(std::int32_t handle, SocketCls* socket) {
  if (socket == nullptr) {
    owners_.erase(handle);
  } else if (IsRegistered(*socket)) {
    owners_[handle] = socket;
  }
}

SocketCls* SocketModule::Owner(std::int32_t handle) const {
  const auto found = owners_.find(handle);
  return found == owners_.end() ? nullptr : found->second;
}

void SocketModule::Kill() {
  cancel_ = true;
  loop_->KillWaits();
}

// Tells the calls that wait for a socket that something has happened to it, after its events, in
// which it may go.
class SocketModule::Told {
 public:
  explicit Told(const SocketCls& socket) : call_(socket.call_), owner_(socket.owner_) {}

 private:
  const CallState::Events call_;
  const CallState::Events owner_;
};

void SocketModule::OnSocket(std::int32_t handle, SocketEvent event, std::int32_t error) {
  SocketCls* socket = Owner(handle);
  if (socket == nullptr) return;
  const Told told(*socket);
  switch (event) {
    case SocketEvent::Read:
      if (!socket->socketIsBusy_) Drain(*socket);
      break;
    case SocketEvent::Write:
      sendBlocked_ = false;
      ++socket->writes_;
      socket->WindowProc(2);
      break;
    case SocketEvent::Accept:
      cancel_ = false;
      socket->WindowProc(8);
      break;
    case SocketEvent::Connect:
      cancel_ = false;
      Connected(*socket, handle, error);
      break;
    case SocketEvent::Close:
      socket->PeerClosed(error);
      break;
  }
}

void SocketModule::Connected(SocketCls& socket, std::int32_t handle, std::int32_t error) {
  if (error == 0) {
    if (socket.race_ != nullptr) socket.race_->Won(handle);
    socket.race_.reset();
    return socket.WindowProc(16);
  }
  if (socket.race_ == nullptr || !socket.race_->Lost(handle, error)) ConnectFailed(socket, error);
}

void SocketModule::ConnectFailed(SocketCls& socket, std::int32_t error) {
  const Told told(socket);
  socket.Close();
  socket.WindowProc(999, std::to_string(error));
}

void SocketModule::Drain(SocketCls& socket) {
  const auto call = socket.call_;
  const std::uint32_t connection = socket.connection_;
  const std::int32_t handle = socket.socketHandle_;
  const auto canGoOn = [&] {
    return call->alive && socket.connection_ == connection && !socket.socketIsBusy_ &&
           Owner(handle) == &socket;
  };
  // The notification is taken, but what it tells of may not be.
  const OnException again([&] {
    if (canGoOn()) Notifications().Renew(handle);
  });
  // Inside the pump of another read loop one block is enough: turns of turns would take for ever.
  const int turns = pumpsInDrain_ == 0 ? kChunksPerTurn : 1;
  const TimePoint end = Now() + kTurn;
  socket.DeliverEarly();
  for (int turn = 0; turn < turns && canGoOn(); ++turn) {
    if (turn >= kChunksForSure && Now() >= end) break;
    PumpInDrain(socket);
    if (!canGoOn()) return;
    if (cancel_.exchange(false)) break;
    bool more = false;
    if (!ReceiveOnce(socket, more)) {
      if (more) break;
      return;
    }
  }
  if (canGoOn()) Notifications().Renew(handle);
}

void SocketModule::PumpInDrain(SocketCls& socket) {
  if (socket.draining_ || !loop_->MayPumpAside()) return;
  struct Scope {
    explicit Scope(SocketModule& of, SocketCls& reader)
        : module(of), socket(reader), call(reader.call_) {
      socket.draining_ = true;
      ++module.pumpsInDrain_;
    }
    ~Scope() {  // also when memory runs out inside
      --module.pumpsInDrain_;
      if (call->alive) socket.draining_ = false;
    }
    SocketModule& module;
    SocketCls& socket;
    const std::shared_ptr<CallState> call;
  };
  const Scope scope(*this, socket);
  loop_->PumpAside();
}

bool SocketModule::ReceiveOnce(SocketCls& socket, bool& more) {
  if (socket.tls_ != nullptr) {
    more = false;
    return ReceiveProtected(socket);
  }
  SocketAddress from;
  std::int32_t error = 0;
  Bytes block = std::exchange(block_, {});
  block.reserve(room_.size());  // now: what has been received must find its place
  const auto got = Notifications().Receive(socket.socketHandle_, room_, error,
                                           socket.datagrams_ ? &from : nullptr);
  more = socket.datagrams_ && (got == 0 || (got < 0 && error != kErrWouldBlock));
  if (got < 0 && more) socket.lastSocketErr_ = error;
  if (got <= 0) return false;
  if (socket.datagrams_) {
    Notifications().Renew(socket.socketHandle_);  // for a pump inside the event
    socket.remoteIP_ = FormatAddress(from.ip);
    socket.remotePort_ = from.port;
  }
  block.assign(room_.begin(), room_.begin() + got);
  socket.WindowProc(1, block);
  block_ = std::move(block);
  return true;
}

}  // namespace netro
