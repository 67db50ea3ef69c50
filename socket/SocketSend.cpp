// Sending: blocks its caller while the system's buffer is full, but keeps the loop alive.
#include <netro/SocketCls.h>

#include <charconv>
#include <iterator>

#include "platform/ErrorNumbers.h"
#include "socket/CallState.h"
#include "socket/SocketModule.h"
#include "socket/Wait.h"
#include "support/OnException.h"

namespace netro {
namespace {

constexpr long kSendSeconds = 60;

}  // namespace

std::int32_t SocketCls::SendData(const std::string& Data) {
  return SendBytes(Data.data(), Data.size());
}

std::int32_t SocketCls::SendData(const Bytes& Data) { return SendBytes(Data.data(), Data.size()); }

std::int32_t SocketCls::SendData(std::uint8_t Data) { return SendBytes(&Data, 1); }

std::int32_t SocketCls::SendData(std::int32_t Data) { return SendData(std::to_string(Data)); }

std::int32_t SocketCls::SendData(double Data) {
  char text[32];
  const auto end = std::to_chars(text, std::end(text), Data).ptr;
  return SendData(std::string(text, end));
}

std::int32_t SocketCls::SendBytes(const void* data, std::size_t size) {
  BusyScope busy(call_);
  if (busy.Refused()) return kErrInProgress;
  const CancelMark mark(module_, call_);
  return SendAll(static_cast<const std::uint8_t*>(data), size, mark, &busy);
}

std::int32_t SocketCls::SendAll(const std::uint8_t* data, std::size_t size, const CancelMark& mark,
                                BusyScope* busy) {
  if (socketHandle_ == 0) return kErrNotConnected;
  // Whoever else is blocked tries again: this send may have taken its notification.
  const auto unblock = [&] { mark.Module().SendBlocked(false); };
  const OnException unblockThen(unblock);
  const std::int32_t error = SendInTurns(data, size, mark, busy);
  if (error != 0) unblock();
  return error;
}

std::int32_t SocketCls::SendInTurns(const std::uint8_t* data, std::size_t size,
                                    const CancelMark& mark, BusyScope* busy) {
  const auto call = call_;
  SocketModule& module = mark.Module();
  const std::uint32_t connection = connection_;
  const TimePoint deadline = SecondsFromNow(kSendSeconds);
  module.SendBlocked(false);
  for (std::size_t position = 0; position < size;) {
    if (connection_ != connection) return kErrNotConnected;
    std::int32_t error = 0;
    const auto sent =
        module.Notifications().Send(socketHandle_, {data + position, size - position}, error);
    if (sent < 0 && error != kErrWouldBlock) return error;
    if (sent == 0) return 0;
    if (sent > 0) position += static_cast<std::size_t>(sent);
    if (sent < 0) module.SendBlocked(true);
    // Everything is out: an answer that the last pump delivers may be answered in its turn.
    const bool last = position == size;
    if (last && busy != nullptr) busy->Leave();
    if (!last || module.MessageLoop().MayPumpAside()) {
      WaitUntil(mark, deadline, [&] {
        return !call->alive || connection_ != connection || sent > 0 || !module.SendBlocked();
      });
    }
    if (Now() >= deadline) return kErrTimedOut;
    if (mark.Cancelled()) return kErrCancelled;
  }
  return 0;
}

}  // namespace netro
