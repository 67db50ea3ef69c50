// Plain sockets of both families: everything that needs no notification. Handles are never 0. Any
// thread. Functions that can fail return the documented error number, 0 for success.
#pragma once

#include <cstdint>

#include "platform/Address.h"
#include "platform/Clock.h"

namespace netro {

enum class SocketKind : std::int32_t { Stream, Listener, Datagram };

/// A new non-blocking socket that child processes do not inherit; without a family one of IPv4. An
/// IPv6 one that is bound to "::" takes both families. On failure `handle` is 0.
std::int32_t CreateSocket(SocketKind kind, AddressFamily family, std::int32_t& handle);
void CloseSocket(std::int32_t handle);

std::int32_t SetReuseAddress(std::int32_t handle);
std::int32_t SetBroadcast(std::int32_t handle);
/// Has the system note when each datagram comes, for ArrivalTime.
void SetArrivalTimes(std::int32_t handle);
/// When the datagram that was received last came to this system, by the clock of waits; now where
/// that was not noted.
TimePoint ArrivalTime(std::int32_t handle);
/// Close returns at once and the system sends what is left.
std::int32_t SetLingerOff(std::int32_t handle);
/// Small blocks go out at once instead of waiting for the peer to confirm what was sent before.
std::int32_t SetNoDelay(std::int32_t handle, bool on);
/// Ends both directions. What has arrived can still be read, and then the end.
void ShutDownSocket(std::int32_t handle);
std::int32_t BindSocket(std::int32_t handle, const SocketAddress& address);
/// The address that this host sends from to another one; none when it knows no way.
IpAddress SourceAddress(const IpAddress& destination);
/// Gives a datagram socket the only peer that it sends to and hears, refusals included.
std::int32_t SetPeer(std::int32_t handle, const SocketAddress& address);

/// Address of either end; all zero when there is none.
SocketAddress LocalAddress(std::int32_t handle);
SocketAddress PeerAddress(std::int32_t handle);

}  // namespace netro
