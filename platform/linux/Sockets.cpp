#include "platform/Sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "platform/ErrorNumbers.h"
#include "platform/linux/Descriptor.h"

namespace netro {
namespace {

std::int32_t SetOption(int handle, int option, const void* value, socklen_t size) {
  return setsockopt(handle, SOL_SOCKET, option, value, size) == 0 ? 0 : SocketErrorNumber(errno);
}

using NameCall = int (*)(int, sockaddr*, socklen_t*);

SocketAddress AskName(NameCall call, int handle) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  if (handle == 0 || call(handle, reinterpret_cast<sockaddr*>(&name), &size) != 0) return {};
  return FromSystem(name);
}

}  // namespace

int AwayFromZero(int descriptor) {
  if (descriptor != 0) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
  const int error = errno;
  close(descriptor);
  errno = error;
  return moved;
}

sockaddr_in ToSystem(const SocketAddress& address) {
  sockaddr_in system{};
  system.sin_family = AF_INET;
  system.sin_port = htons(static_cast<std::uint16_t>(address.port));
  system.sin_addr.s_addr = static_cast<in_addr_t>(address.ip);
  return system;
}

SocketAddress FromSystem(const sockaddr_in& system) {
  return {static_cast<std::int32_t>(system.sin_addr.s_addr), ntohs(system.sin_port)};
}

std::int32_t CreateSocket(SocketKind kind, std::int32_t& handle) {
  const bool datagram = kind == SocketKind::Datagram;
  const int type = (datagram ? SOCK_DGRAM : SOCK_STREAM) | SOCK_NONBLOCK | SOCK_CLOEXEC;
  const int made = AwayFromZero(socket(AF_INET, type, datagram ? IPPROTO_UDP : IPPROTO_TCP));
  handle = made < 0 ? 0 : made;
  return made < 0 ? SocketErrorNumber(errno) : 0;
}

void CloseSocket(std::int32_t handle) { close(handle); }

std::int32_t SetReuseAddress(std::int32_t handle) {
  const int on = 1;
  return SetOption(handle, SO_REUSEADDR, &on, sizeof on);
}

std::int32_t SetBroadcast(std::int32_t handle) {
  const int on = 1;
  return SetOption(handle, SO_BROADCAST, &on, sizeof on);
}

std::int32_t SetLingerOff(std::int32_t handle) {
  const linger off{};
  return SetOption(handle, SO_LINGER, &off, sizeof off);
}

std::int32_t SetNoDelay(std::int32_t handle, bool on) {
  const int value = on ? 1 : 0;
  return setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &value, sizeof value) == 0
             ? 0
             : SocketErrorNumber(errno);
}

void ShutDownSocket(std::int32_t handle) { shutdown(handle, SHUT_RDWR); }

std::int32_t BindSocket(std::int32_t handle, const SocketAddress& address) {
  const sockaddr_in name = ToSystem(address);
  const auto* generic = reinterpret_cast<const sockaddr*>(&name);
  return bind(handle, generic, sizeof name) == 0 ? 0 : SocketErrorNumber(errno);
}

SocketAddress LocalAddress(std::int32_t handle) { return AskName(&getsockname, handle); }

SocketAddress PeerAddress(std::int32_t handle) { return AskName(&getpeername, handle); }

namespace {

// Four decimal numbers without leading zeros, as nearly every text has them: the system's parser
// takes ten times as long.
std::optional<std::int32_t> ParseUsual(std::string_view text) {
  std::uint32_t address = 0;
  int dots = 0;
  int octet = -1;  // none of its digits has come
  for (const char c : text) {
    if (c >= '0' && c <= '9' && octet != 0 && octet < 256) {
      octet = std::max(octet, 0) * 10 + (c - '0');
    } else if (c == '.' && octet >= 0 && octet < 256 && ++dots < 4) {
      address = address << 8 | static_cast<std::uint32_t>(octet);
      octet = -1;
    } else {
      return std::nullopt;
    }
  }
  if (dots != 3 || octet < 0 || octet > 255) return std::nullopt;
  return static_cast<std::int32_t>(htonl(address << 8 | static_cast<std::uint32_t>(octet)));
}

}  // namespace

std::optional<std::int32_t> ParseDotted(const std::string& text) {
  if (const auto usual = ParseUsual(text)) return usual;
  in_addr address{};
  // The system's parser stops at a blank; a text with one is no address.
  if (text.empty() || text.find_first_not_of("0123456789abcdefABCDEFxX.") != std::string::npos) {
    return std::nullopt;
  }
  if (inet_aton(text.c_str(), &address) == 0) return std::nullopt;
  return static_cast<std::int32_t>(address.s_addr);
}

std::string FormatDotted(std::int32_t ip) {
  in_addr address{};
  address.s_addr = static_cast<in_addr_t>(ip);
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

}  // namespace netro
