// One exchange by datagrams: a request out, the reply to it in. It runs under the caller's
// cancellation and touches nothing that an event may delete. Public queries that take whatever
// comes are UDPCls's.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <span>

#include "socket/DatagramPool.h"
#include "socket/Wait.h"

namespace netro {

/// Sends one datagram of exactly these bytes, which may be none, and waits until the limit for one
/// from the target that `wanted` takes; others are ignored. Replies to what was sent before over a
/// socket of the pool must not look like one. Returns the error number: 9999, 10002,
/// the socket's.
std::int32_t AskByDatagram(const SocketAddress& target, std::span<const std::uint8_t> request,
                           DatagramSocket::Filter wanted, const CancelMark& mark, TimePoint limit,
                           DatagramPool& sockets, Bytes& reply);

}  // namespace netro
