#include "socket/DatagramExchange.h"

#include <utility>

#include "platform/ErrorNumbers.h"

namespace netro {

std::int32_t AskByDatagram(const SocketAddress& target, std::span<const std::uint8_t> request,
                           DatagramSocket::Filter wanted, const CancelMark& mark, TimePoint limit,
                           Bytes& reply) {
  if (target.port < 1 || target.port > 65535) return kErrInvalidArgument;
  if (mark.Cancelled()) return kErrCancelled;
  if (mark.Expired(limit)) return kErrTimedOut;
  Notifier& notifier = mark.Module().Notifications();
  std::int32_t error = notifier.Open();
  DatagramSocket socket(notifier, mark.Object());
  if (error == 0) error = socket.Open({}, target);
  socket.TakeOnly(std::move(wanted));
  if (error == 0) error = socket.Send(request);
  while (error == kErrWouldBlock) {
    error = WaitError(WaitUntil(mark, limit, [&] { return !socket.SendBlocked(); }));
    if (error == 0) error = socket.Send(request);
  }
  if (error == 0) error = WaitError(WaitUntil(mark, limit, [&] { return socket.Readable(); }));
  return error != 0 ? error : socket.Take(reply);
}

}  // namespace netro
