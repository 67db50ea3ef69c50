// Sending without waiting: the queue, and when it may go out.
//
// What is queued goes out from the owner's call when nothing is ahead of it, else with the write
// notifications. So while the queue holds something, one of these is to come: a notification that
// was asked for, the one that follows Connect, or the end of a QueueHold. SendComplete is raised by
// notifications only, never by the calls here; that a queue went out at once is no exception.
#include <netro/SocketCls.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "platform/Sockets.h"
#include "socket/QueueHold.h"
#include "socket/SendQueue.h"
#include "socket/SocketModule.h"

namespace netro {
namespace {

constexpr std::size_t kBytesPerTurn = 1024 * 1024;  // then other sockets have theirs

}  // namespace

QueueHold::QueueHold(SocketCls& socket, BusyScope* send)
    : socket_(socket), call_(socket.call_), send_(send), hadQueue_(!socket.queue_->Empty()) {
  socket_.hold_ = this;
}

void QueueHold::End() {
  if (std::exchange(ended_, true)) return;
  if (send_ != nullptr) send_->Leave();
  if (!call_->alive || socket_.hold_ != this) return;
  socket_.hold_ = nullptr;
  const bool owed = hadQueue_ || socket_.UnsentBytes() > 0 || socket_.closeWhenSent_;
  if (owed && socket_.socketHandle_ != 0) socket_.RequestQueueTurn();
}

std::size_t SocketCls::QueuedBytes() const { return UnsentBytes(); }

std::int32_t SocketCls::QueueData(std::string_view Data) {
  return QueueData(std::span(reinterpret_cast<const std::uint8_t*>(Data.data()), Data.size()));
}

std::int32_t SocketCls::QueueData(std::span<const std::uint8_t> Data) {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return kErrOtherThread;
  std::int32_t error = QueueRefusal(Data.size());
  if (error != 0 || Data.empty()) return error;
  try {
    queue_->Reserve(Data.size());
  } catch (const std::exception&) {
    return kErrNoBuffers;
  }
  std::ptrdiff_t sent = 0;
  if (queue_->Empty() && QueueMayGoOut()) {
    sent = Transmit(Data, error);
    if (sent >= 0) RequestQueueTurn();
  }
  const bool broken = sent < 0 && error != kErrWouldBlock;
  const std::size_t taken = sent > 0 ? static_cast<std::size_t>(sent) : 0;
  queue_->Add(broken ? Data.first(0) : Data.subspan(taken));
  return broken ? error : 0;
}

std::int32_t SocketCls::QueueRefusal(std::size_t size) const {
  if (socketHandle_ == 0) return kErrNotConnected;
  if (state_ == sockListening) return kErrNotSupported;
  if (closeWhenSent_) return kErrShutDown;
  const std::size_t queued = queue_->Size();
  const bool fits = queued <= sendBufferLimit_ && size <= sendBufferLimit_ - queued;
  return fits ? 0 : kErrNoBuffers;
}

bool SocketCls::QueueMayGoOut() const { return hold_ == nullptr && state_ != sockConnecting; }

void SocketCls::RequestQueueTurn() {
  Notifier& notifier = module_->Notifications();
  try {
    notifier.RenewWrite(socketHandle_);
  } catch (const std::exception&) {
    notifier.AwaitRoom(socketHandle_);  // later, but it needs no memory
  }
  module_->MessageLoop().KeepReadable();
}

bool SocketCls::SendQueued() {
  if (UnsentBytes() == 0 && !closeWhenSent_) return true;
  if (!QueueMayGoOut()) return false;
  for (std::size_t left = kBytesPerTurn; UnsentBytes() > 0;) {
    if (left == 0) {
      RequestQueueTurn();
      return false;
    }
    std::int32_t error = 0;
    const auto sent = Transmit(queue_->Front(left), error);
    if (sent < 0) return error != kErrWouldBlock && QueueFailed(error);
    queue_->Pop(static_cast<std::size_t>(sent));
    left -= static_cast<std::size_t>(sent);
  }
  if (closeWhenSent_) Close();
  return true;
}

// A stream with a gap must not go on. Closed comes when the owner has got all that has arrived; if
// it was raised before, SendComplete has to do.
bool SocketCls::QueueFailed(std::int32_t error) {
  lastSocketErr_ = error;
  queue_->Clear();
  ShutDownSocket(socketHandle_);
  const bool closedBefore = state_ == sockClosed;
  if (closedBefore && closeWhenSent_) Close();
  return closedBefore;
}

void SocketCls::DisconnectWhenSent() {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return;
  closeWhenSent_ = true;
  if (UnsentBytes() == 0 && hold_ == nullptr) Close();
}

}  // namespace netro
