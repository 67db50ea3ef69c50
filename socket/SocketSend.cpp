// Sending: blocks its caller while the system's buffer is full, but keeps the loop alive. What was
// queued before goes out first.
#include <netro/SocketCls.h>

#include <new>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "socket/QueueHold.h"
#include "socket/SendQueue.h"
#include "socket/SocketModule.h"
#include "socket/Wait.h"
#include "support/OnException.h"

namespace netro {

std::int32_t SocketCls::SendData(std::string_view Data) {
  return SendData(std::span(reinterpret_cast<const std::uint8_t*>(Data.data()), Data.size()));
}

std::int32_t SocketCls::SendData(std::span<const std::uint8_t> Data) {
  BusyScope busy(call_);
  if (busy.Refused()) return busy.Error();
  if (closeWhenSent_) return kErrShutDown;
  const CancelMark mark(module_, call_);
  QueueHold hold(*this, &busy);
  try {
    return SendAll(Data, mark, SecondsFromNow(kStreamSendSeconds), &hold);
  } catch (const std::bad_alloc&) {
    return kErrNoBuffers;
  }
}

std::int32_t SocketCls::SendAll(std::span<const std::uint8_t> data, const CancelMark& mark,
                                TimePoint deadline, QueueHold* hold) {
  if (socketHandle_ == 0) return kErrNotConnected;
  // Whoever else is blocked tries again: this send may have taken its notification.
  const auto unblock = [&] { mark.Module().SendBlocked(false); };
  const OnException unblockThen(unblock);
  const std::int32_t error = SendInTurns(data, mark, deadline, hold);
  if (error != 0) unblock();
  return error;
}

std::int32_t SocketCls::SendInTurns(std::span<const std::uint8_t> data, const CancelMark& mark,
                                    TimePoint deadline, QueueHold* hold) {
  const auto call = call_;
  SocketModule& module = mark.Module();
  const std::uint32_t connection = connection_;
  std::size_t ahead = hold != nullptr ? queue_->Size() : 0;
  module.SendBlocked(false);
  for (bool last = data.empty(); !last;) {
    if (connection_ != connection) return kErrNotConnected;
    const std::uint32_t writes = writes_;
    // While connecting, a send would take the outcome away from the notification.
    std::int32_t error = kErrWouldBlock;
    const std::span next = ahead > 0 ? queue_->Front(ahead) : data;
    const std::ptrdiff_t sent = state_ == sockConnecting ? -1 : Transmit(next, error);
    if (sent < 0 && error != kErrWouldBlock) return error;
    if (sent == 0 && !next.empty()) return 0;
    const std::size_t taken = sent > 0 ? static_cast<std::size_t>(sent) : 0;
    if (ahead > 0) {
      queue_->Pop(taken);
      ahead -= taken;
    } else {
      data = data.subspan(taken);
    }
    if (sent < 0) module.SendBlocked(true);
    sendLeft_ = data.size() + ahead;
    // Everything is out: an answer that the last pump delivers may be answered in its turn.
    last = data.empty() && !ProtectedUnsent();
    if (last && hold != nullptr) hold->End();
    if (!last || module.MessageLoop().MayPumpAside()) {
      WaitUntil(mark, deadline, [&] {
        return !call->alive || connection_ != connection || sent >= 0 || writes_ != writes ||
               !module.SendBlocked();
      });
    }
    if (mark.Expired(deadline)) return kErrTimedOut;
    if (mark.Cancelled()) return kErrCancelled;
  }
  return 0;
}

}  // namespace netro
