#include "platform/Sockets.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/ErrorNumbers.h"
#include "platform/linux/Descriptor.h"

namespace netro {
namespace {

std::int32_t SetOption(int handle, int option, const void* value, socklen_t size) {
  return setsockopt(handle, SOL_SOCKET, option, value, size) == 0 ? 0 : SocketErrorNumber(errno);
}

using NameCall = int (*)(int, sockaddr*, socklen_t*);

SocketAddress AskName(NameCall call, int handle) {
  SystemAddress name;
  if (handle == 0 || call(handle, name.Generic(), &name.size) != 0) return {};
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

SystemAddress ToSystem(const SocketAddress& address) {
  SystemAddress system;
  const auto port = htons(static_cast<std::uint16_t>(address.port));
  const auto bytes = address.ip.Bytes();
  if (address.ip.IsIPv6()) {
    system.v6.sin6_family = AF_INET6;
    system.v6.sin6_port = port;
    system.v6.sin6_scope_id = address.ip.Scope();
    std::memcpy(&system.v6.sin6_addr, bytes.data(), bytes.size());
    return system;
  }
  system.v4.sin_family = AF_INET;
  system.v4.sin_port = port;
  if (!bytes.empty()) std::memcpy(&system.v4.sin_addr, bytes.data(), bytes.size());
  system.size = sizeof system.v4;
  return system;
}

SocketAddress FromSystem(const SystemAddress& system) {
  if (system.v4.sin_family == AF_INET) {
    return {IpAddress::V4(static_cast<std::int32_t>(system.v4.sin_addr.s_addr)),
            ntohs(system.v4.sin_port)};
  }
  if (system.v4.sin_family != AF_INET6) return {};
  std::array<std::uint8_t, 16> bytes{};
  std::memcpy(bytes.data(), &system.v6.sin6_addr, bytes.size());
  return {IpAddress::V6(bytes, system.v6.sin6_scope_id), ntohs(system.v6.sin6_port)};
}

std::int32_t CreateSocket(SocketKind kind, AddressFamily family, std::int32_t& handle) {
  const bool datagram = kind == SocketKind::Datagram;
  const bool v6 = family == AddressFamily::IPv6;
  const int type = (datagram ? SOCK_DGRAM : SOCK_STREAM) | SOCK_NONBLOCK | SOCK_CLOEXEC;
  const int protocol = datagram ? IPPROTO_UDP : IPPROTO_TCP;
  const int made = AwayFromZero(socket(v6 ? AF_INET6 : AF_INET, type, protocol));
  handle = made < 0 ? 0 : made;
  if (made < 0) return SocketErrorNumber(errno);
  const int off = 0;
  if (v6) setsockopt(made, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  return 0;
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

// Being asked for the first time, when there is nothing to tell, is what makes the system note
// them.
void SetArrivalTimes(std::int32_t handle) {
  timespec none{};
  static_cast<void>(ioctl(handle, SIOCGSTAMPNS, &none));
}

// The system's note is by the clock that people set: what is taken from it is only how long ago
// that was.
TimePoint ArrivalTime(std::int32_t handle) {
  using std::chrono::nanoseconds;
  timespec came{};
  timespec now{};
  const bool noted = ioctl(handle, SIOCGSTAMPNS, &came) == 0 && came.tv_sec > 0;
  clock_gettime(CLOCK_REALTIME, &now);
  const TimePoint present = Now();
  if (!noted) return present;
  const nanoseconds age =
      std::chrono::seconds(now.tv_sec - came.tv_sec) + nanoseconds(now.tv_nsec - came.tv_nsec);
  return present - std::max(age, nanoseconds(0));
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
  const SystemAddress name = ToSystem(address);
  return bind(handle, name.Generic(), name.size) == 0 ? 0 : SocketErrorNumber(errno);
}

std::int32_t SetPeer(std::int32_t handle, const SocketAddress& address) {
  const SystemAddress name = ToSystem(address);
  return connect(handle, name.Generic(), name.size) == 0 ? 0 : SocketErrorNumber(errno);
}

IpAddress SourceAddress(const IpAddress& destination) {
  constexpr std::int32_t kDiscardPort = 9;  // nothing is sent
  std::int32_t handle = 0;
  if (CreateSocket(SocketKind::Datagram, destination.Family(), handle) != 0) return {};
  const bool known = SetPeer(handle, {destination, kDiscardPort}) == 0;
  const IpAddress source = known ? LocalAddress(handle).ip : IpAddress();
  CloseSocket(handle);
  return source;
}

SocketAddress LocalAddress(std::int32_t handle) { return AskName(&getsockname, handle); }

SocketAddress PeerAddress(std::int32_t handle) { return AskName(&getpeername, handle); }

}  // namespace netro
