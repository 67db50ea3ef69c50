#include "socket/DatagramExchange.h"

#include <utility>

#include "platform/ErrorNumbers.h"

namespace netro {

std::int32_t DatagramExchange::Ask(const SocketAddress& target,
                                   std::span<const std::uint8_t> request,
                                   DatagramSocket::Filter wanted, TimePoint limit, Bytes& reply) {
  return Ask(
      target, [request] { return request; }, std::move(wanted), limit, reply);
}

std::int32_t DatagramExchange::Ask(const SocketAddress& target, const MakeRequest& request,
                                   DatagramSocket::Filter wanted, TimePoint limit, Bytes& reply) {
  if (target.port < 1 || target.port > 65535) return kErrInvalidArgument;
  if (mark_.Cancelled()) return kErrCancelled;
  if (mark_.Expired(limit)) return kErrTimedOut;
  if (const std::int32_t error = mark_.Module().Notifications().Open()) return error;
  DatagramPool::Lease& lease = asked_.emplace_back(sockets_);
  std::int32_t error = lease.Open(mark_.Object(), target, std::move(wanted));
  if (error != 0) {
    asked_.pop_back();
    return error;
  }
  DatagramSocket& socket = lease.Socket();
  error = socket.Send(request());
  while (error == kErrWouldBlock) {
    error = WaitError(WaitUntil(mark_, limit, [&] { return !socket.SendBlocked(); }));
    if (error == 0) error = socket.Send(request());
  }
  if (error == 0) error = WaitError(WaitUntil(mark_, limit, [&] { return Answered() != nullptr; }));
  if (error != 0) return error;
  DatagramPool::Lease& answered = *Answered();
  arrival_ = answered.Socket().Arrival();
  error = answered.Socket().Take(reply);
  if (error == 0) answered.HandOn();
  return error;
}

// An earlier target that refuses has nothing to say any more; the last one is waited for.
DatagramPool::Lease* DatagramExchange::Answered() {
  for (DatagramPool::Lease& lease : asked_) {
    const bool last = &lease == &asked_.back();
    if (lease.IsOpen() && lease.Socket().Readable() && (last || lease.Socket().Error() == 0)) {
      return &lease;
    }
  }
  return nullptr;
}

}  // namespace netro
