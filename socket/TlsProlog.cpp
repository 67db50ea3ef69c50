// How a connection becomes a protected one, how it is read, and how it ends.
//
// The handshake runs as a SOCKS prolog does (SocksProlog.cpp): WindowProc collects what arrives and
// raises no event, a close only ends the wait, every failure closes the socket. Before the first
// byte of it goes out the loop is pumped once: what has come until then was not protected, and
// nothing of it may be taken as if it were.
//
// Afterwards the socket has a TlsStream, through which SocketModule reads and SocketQueue and
// SocketSend send. A close that the system tells while plaintext is left to deliver is held back,
// as it is for plain bytes that the system still has.
#include <netro/SocketCls.h>
#include <netro/Tls.h>

#include <memory>
#include <span>
#include <utility>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "platform/Sockets.h"
#include "socket/QueueHold.h"
#include "socket/SendQueue.h"
#include "socket/SocketModule.h"
#include "socket/TlsStream.h"
#include "socket/Wait.h"
#include "support/OnException.h"

namespace netro {
namespace {

constexpr std::size_t kLongestHandshake = 256 * 1024;

}  // namespace

bool SocketCls::StartTls(const std::string& Host, std::shared_ptr<TlsProvider> Provider) {
  const BusyScope busy(call_);
  if (busy.Refused()) {
    if (!busy.WrongThread()) lastSocketErr_ = kErrInProgress;
    return false;
  }
  const CancelMark mark(module_, call_);
  return Protect(Host, std::move(Provider), mark, SecondsFromNow(socksTimeout_)) == 0;
}

TlsInfo SocketCls::TlsInfo() const {
  return tls_ != nullptr ? tls_->Info() : netro::TlsInfo();
}

std::int32_t SocketCls::Protect(std::string host, std::shared_ptr<TlsProvider> provider,
                                const CancelMark& mark, Deadline deadline) {
  const auto call = call_;
  const std::uint32_t connection = connection_;
  const QueueHold hold(*this);
  const auto close = [&] {
    prologInProgress_ = closeHeld_ = false;
    if (connection_ == connection) Close();  // else an event has put another one in its place
  };
  const OnException closeThen([&] {
    if (call->alive) close();
  });
  std::unique_ptr<TlsSession> session;
  std::int32_t error = TlsRefusal(provider.get());
  if (error == 0) {
    session = provider->NewSession(host, remotePort_);
    error = session == nullptr ? static_cast<std::int32_t>(kErrNoBuffers) : session->Error();
  }
  if (error == 0) error = RunHandshake(*session, mark, deadline);
  if (!call->alive) return kErrCancelled;
  if (error == 0) {
    BeginProtected(std::move(session));
    return 0;
  }
  const bool same = connection_ == connection;
  close();
  lastSocketErr_ = error;
  if (same && session != nullptr) {
    tls_ = std::make_shared<TlsStream>(std::move(session), Bytes());
  }
  return error;
}

std::int32_t SocketCls::TlsRefusal(const TlsProvider* provider) const {
  if (provider == nullptr) return kErrProtocolNotSupported;
  if (socketHandle_ == 0 || datagrams_ || state_ == sockConnecting || state_ == sockListening) {
    return kErrNotConnected;
  }
  if (tls_ != nullptr) return kErrNotSupported;
  return early_.empty() ? 0 : static_cast<std::int32_t>(tlsEarlyBytes);
}

std::int32_t SocketCls::RunHandshake(TlsSession& session, const CancelMark& mark,
                                     Deadline deadline) {
  const auto call = call_;
  const std::uint32_t connection = connection_;
  prologReply_.clear();
  closeHeld_ = state_ != sockConnected;  // the peer may have hung up before
  prologInProgress_ = true;
  module_->Notifications().SetAwaited(socketHandle_);
  // The end of the handshake and the first data are two small blocks, one behind the other.
  SetNoDelay(socketHandle_, true);
  const WaitEnd looked = WaitUntil(mark, deadline, [] { return true; });
  if (looked != WaitEnd::Done) return WaitError(looked);
  if (call->alive && connection_ == connection && !prologReply_.empty()) return tlsEarlyBytes;

  for (std::size_t taken = 0;;) {
    if (!call->alive) return kErrCancelled;
    if (connection_ != connection) return kErrNotConnected;  // disconnected by an event
    std::size_t used = 0;
    const std::int32_t error = StepHandshake(session, mark, deadline, used);
    if (error != 0) return error;
    if (connection_ != connection) return kErrNotConnected;  // while the last of it was sent
    if (session.State() == TlsState::Open) return 0;
    taken += used;
    if (taken > kLongestHandshake) return tlsTooMuch;
    const WaitEnd end = WaitUntil(mark, deadline, [&] {
      return !call->alive || connection_ != connection || closeHeld_ || !prologReply_.empty();
    });
    if (end != WaitEnd::Done) return WaitError(end);
    if (call->alive && connection_ == connection && prologReply_.empty()) return tlsCut;
  }
}

// Takes in what has come and sends what is due. What follows the handshake stays in prologReply_.
std::int32_t SocketCls::StepHandshake(TlsSession& session, const CancelMark& mark,
                                      Deadline deadline, std::size_t& used) {
  const auto call = call_;
  used = session.Handshake(prologReply_);
  prologReply_.erase(prologReply_.begin(), prologReply_.begin() + static_cast<long>(used));
  std::int32_t error = 0;
  if (!session.Outgoing().empty()) error = SendAll(session.Outgoing(), mark, deadline);
  if (!call->alive) return kErrCancelled;
  session.Sent(session.Outgoing().size());
  if (session.State() == TlsState::Failed) return session.Error();
  // Who hangs up has often said why, which is still to be read.
  return error == kErrConnectionReset ? 0 : error;
}

void SocketCls::BeginProtected(std::unique_ptr<TlsSession> session) {
  tls_ = std::make_shared<TlsStream>(std::move(session), prologReply_);
  prologReply_ = Bytes();
  prologInProgress_ = false;
  if (!tls_->HasInput() && !closeHeld_) return;
  module_->Notifications().Renew(socketHandle_);
  module_->MessageLoop().KeepReadable();
}

std::ptrdiff_t SocketCls::Transmit(std::span<const std::uint8_t> data, std::int32_t& error) {
  Notifier& notifier = module_->Notifications();
  return tls_ == nullptr ? notifier.Send(socketHandle_, data, error)
                         : tls_->Send(notifier, socketHandle_, data, error);
}

std::size_t SocketCls::UnsentBytes() const {
  return queue_->Size() + (tls_ != nullptr ? tls_->Unsent() : 0);
}

bool SocketCls::ProtectedUnsent() const { return tls_ != nullptr && tls_->Unsent() > 0; }

// The end of protected data: what the session says, or a connection that ended without its word.
void SocketCls::EndProtected() {
  closeHeld_ = prologInProgress_;  // a SOCKS prolog inside the protection tells it later
  if (closeHeld_ || tls_->Ended()) return;
  tls_->End();
  closeError_ = tls_->EndError(closeError_);
  if (closeError_ != 0) {
    lastSocketErr_ = closeError_;
    ShutDownSocket(socketHandle_);
  }
  WindowProc(32);
}

bool SocketModule::ReceiveProtected(SocketCls& socket) {
  const auto tls = socket.tls_;
  const std::int32_t handle = socket.socketHandle_;
  const std::size_t got = tls->Read(Notifications(), handle, room_);
  if (got > 0) {
    if (tls->HasInput()) Notifications().Renew(handle);  // for a pump inside the event
    Bytes block = std::exchange(block_, {});
    block.assign(room_.begin(), room_.begin() + static_cast<std::ptrdiff_t>(got));
    socket.WindowProc(1, block);
    block_ = std::move(block);
    return true;
  }
  if (socket.closeHeld_ || tls->IsOver()) socket.EndProtected();
  return false;
}

}  // namespace netro
