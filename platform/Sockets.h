// Plain IPv4 sockets: everything that needs no notification. Handles are never 0. Any thread.
// Functions that can fail return the documented error number, 0 for success.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace netro {

/// An IPv4 address in network byte order held in 32 bits, and a port in host order.
struct SocketAddress {
  std::int32_t ip = 0;
  std::int32_t port = 0;
};

enum class SocketKind : std::int32_t { Stream, Listener, Datagram };

/// A new non-blocking socket that child processes do not inherit. On failure `handle` is 0.
std::int32_t CreateSocket(SocketKind kind, std::int32_t& handle);
void CloseSocket(std::int32_t handle);

std::int32_t SetReuseAddress(std::int32_t handle);
std::int32_t SetBroadcast(std::int32_t handle);
/// Close returns at once and the system sends what is left.
std::int32_t SetLingerOff(std::int32_t handle);
/// Small blocks go out at once instead of waiting for the peer to confirm what was sent before.
std::int32_t SetNoDelay(std::int32_t handle, bool on);
/// Ends both directions. What has arrived can still be read, and then the end.
void ShutDownSocket(std::int32_t handle);
std::int32_t BindSocket(std::int32_t handle, const SocketAddress& address);

/// Address of either end; all zero when there is none.
SocketAddress LocalAddress(std::int32_t handle);
SocketAddress PeerAddress(std::int32_t handle);

/// Dotted text to address and back: every form that the classic inet_addr takes ("127.1" too).
/// "255.255.255.255" is a valid text whose value is -1.
std::optional<std::int32_t> ParseDotted(const std::string& text);
std::string FormatDotted(std::int32_t ip);

}  // namespace netro
