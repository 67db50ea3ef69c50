#include <array>
#include <cstring>

#include "platform/ErrorNumbers.h"
#include "platform/windows/System.h"

namespace netro {
namespace {

#ifndef SIO_UDP_CONNRESET  // older headers leave it out
constexpr DWORD SIO_UDP_CONNRESET = _WSAIOW(IOC_VENDOR, 12);
#endif

std::int32_t LastError() { return SocketErrorNumber(WSAGetLastError()); }

std::int32_t SetOption(std::int32_t handle, int level, int option, DWORD value) {
  const int result = setsockopt(ToSocket(handle), level, option,
                                reinterpret_cast<const char*>(&value), sizeof value);
  return result == 0 ? 0 : LastError();
}

// Whether a refusal by ICMP ends the next receive with an error.
void TellRefusals(SOCKET socket, bool on) {
  BOOL value = on ? TRUE : FALSE;
  DWORD ignored = 0;
  WSAIoctl(socket, SIO_UDP_CONNRESET, &value, sizeof value, nullptr, 0, &ignored, nullptr, nullptr);
}

using NameCall = int(WSAAPI*)(SOCKET, sockaddr*, int*);

SocketAddress AskName(NameCall call, std::int32_t handle) {
  SystemAddress name;
  if (handle == 0 || call(ToSocket(handle), name.Generic(), &name.size) != 0) return {};
  return FromSystem(name);
}

}  // namespace

void StartSockets() {
  // They are let go with the process: other threads and static objects may need them to the end.
  static const int started = [] {
    WSADATA data{};
    return WSAStartup(MAKEWORD(2, 2), &data);
  }();
  static_cast<void>(started);  // without them, the first call tells
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

std::optional<IpAddress> FromSystem(const sockaddr* name) {
  SystemAddress system;
  const int family = name != nullptr ? name->sa_family : AF_UNSPEC;
  if (family != AF_INET && family != AF_INET6) return std::nullopt;
  std::memcpy(&system.v6, name, family == AF_INET ? sizeof system.v4 : sizeof system.v6);
  return FromSystem(system).ip;
}

std::int32_t CreateSocket(SocketKind kind, AddressFamily family, std::int32_t& handle) {
  StartSockets();
  const bool datagram = kind == SocketKind::Datagram;
  const bool v6 = family == AddressFamily::IPv6;
  const SOCKET made = WSASocketW(v6 ? AF_INET6 : AF_INET, datagram ? SOCK_DGRAM : SOCK_STREAM,
                                 datagram ? IPPROTO_UDP : IPPROTO_TCP, nullptr, 0,
                                 WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
  handle = made == INVALID_SOCKET ? 0 : static_cast<std::int32_t>(made);
  if (handle == 0) return LastError();
  u_long on = 1;
  ioctlsocket(made, static_cast<long>(FIONBIO), &on);
  if (datagram) TellRefusals(made, false);
  if (v6) SetOption(handle, IPPROTO_IPV6, IPV6_V6ONLY, 0);
  return 0;
}

void CloseSocket(std::int32_t handle) { closesocket(ToSocket(handle)); }

// Another program could take the port over by the option of this name; a port whose connections
// have gone is free here as it is.
std::int32_t SetReuseAddress(std::int32_t handle) {
  return SetOption(handle, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
}

std::int32_t SetBroadcast(std::int32_t handle) {
  return SetOption(handle, SOL_SOCKET, SO_BROADCAST, 1);
}

// The system does not note them.
void SetArrivalTimes(std::int32_t /*handle*/) {}

TimePoint ArrivalTime(std::int32_t /*handle*/) { return Now(); }

std::int32_t SetLingerOff(std::int32_t handle) {
  const linger off{};
  const int result = setsockopt(ToSocket(handle), SOL_SOCKET, SO_LINGER,
                                reinterpret_cast<const char*>(&off), sizeof off);
  return result == 0 ? 0 : LastError();
}

std::int32_t SetNoDelay(std::int32_t handle, bool on) {
  return SetOption(handle, IPPROTO_TCP, TCP_NODELAY, on ? 1 : 0);
}

void ShutDownSocket(std::int32_t handle) { shutdown(ToSocket(handle), SD_BOTH); }

std::int32_t BindSocket(std::int32_t handle, const SocketAddress& address) {
  const SystemAddress name = ToSystem(address);
  return bind(ToSocket(handle), name.Generic(), name.size) == 0 ? 0 : LastError();
}

std::int32_t SetPeer(std::int32_t handle, const SocketAddress& address) {
  const SystemAddress name = ToSystem(address);
  if (connect(ToSocket(handle), name.Generic(), name.size) != 0) return LastError();
  TellRefusals(ToSocket(handle), true);
  return 0;
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
