#include "socket/DatagramExchange.h"

#include <utility>

#include "platform/ErrorNumbers.h"

namespace netro {

std::int32_t AskByDatagram(const SocketAddress& target, std::span<const std::uint8_t> request,
                           DatagramSocket::Filter wanted, const CancelMark& mark, TimePoint limit,
                           DatagramPool& sockets, Bytes& reply) {
  if (target.port < 1 || target.port > 65535) return kErrInvalidArgument;
  if (mark.Cancelled()) return kErrCancelled;
  if (mark.Expired(limit)) return kErrTimedOut;
  if (const std::int32_t error = mark.Module().Notifications().Open()) return error;
  DatagramPool::Lease lease(sockets);
  if (const std::int32_t error = lease.Open(mark.Object(), target, std::move(wanted))) return error;
  DatagramSocket& socket = lease.Socket();
  std::int32_t error = socket.Send(request);
  while (error == kErrWouldBlock) {
    error = WaitError(WaitUntil(mark, limit, [&] { return !socket.SendBlocked(); }));
    if (error == 0) error = socket.Send(request);
  }
  if (error == 0) error = WaitError(WaitUntil(mark, limit, [&] { return socket.Readable(); }));
  if (error == 0) error = socket.Take(reply);
  if (error == 0) lease.HandOn();
  return error;
}

}  // namespace netro
