// Exchanges by datagrams: requests out, the reply to one of them in. They run under the caller's
// cancellation and touch nothing that an event may delete. Public queries that take whatever comes
// are UDPCls's.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <list>
#include <span>

#include "socket/DatagramPool.h"
#include "socket/Wait.h"

namespace netro {

class DatagramExchange {
 public:
  /// `sockets` are those of exchanges whose replies tell what they answer.
  DatagramExchange(const CancelMark& mark, DatagramPool& sockets)
      : mark_(mark), sockets_(sockets) {}

  /// Sends one datagram of exactly these bytes, which may be none, and waits until the limit for a
  /// reply that `wanted` takes; others are ignored. What was asked before stays open: a late reply
  /// to it counts as well, if its own `wanted` takes it. Returns the error number: 9999, 10002, or
  /// the socket's, 10061 among them as soon as the target refuses.
  std::int32_t Ask(const SocketAddress& target, std::span<const std::uint8_t> request,
                   DatagramSocket::Filter wanted, TimePoint limit, Bytes& reply);
  /// The same with a request that is made when nothing is left to be done but to send it.
  using MakeRequest = std::function<std::span<const std::uint8_t>()>;
  std::int32_t Ask(const SocketAddress& target, const MakeRequest& request,
                   DatagramSocket::Filter wanted, TimePoint limit, Bytes& reply);
  /// When the last reply came to this system, if the pool's sockets tell that.
  TimePoint Arrival() const { return arrival_; }

 private:
  DatagramPool::Lease* Answered();

  const CancelMark& mark_;
  DatagramPool& sockets_;
  std::list<DatagramPool::Lease> asked_;
  TimePoint arrival_;
};

}  // namespace netro
