#include "testkit/Sockets.h"

// Each needs those before it.
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
// clang-format on

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace netro::testkit {
namespace {

SOCKET ToHandle(int socket) {
  return socket < 0 ? INVALID_SOCKET : static_cast<SOCKET>(static_cast<unsigned>(socket));
}

int ToNumber(SOCKET handle) { return handle == INVALID_SOCKET ? -1 : static_cast<int>(handle); }

void StartSockets() {
  static const int started = [] {
    WSADATA data{};
    return WSAStartup(MAKEWORD(2, 2), &data);
  }();
  if (started != 0) std::abort();
}

sockaddr_in ToSystem(const Endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(endpoint.ip);
  address.sin_port = htons(static_cast<std::uint16_t>(endpoint.port));
  return address;
}

Endpoint FromSystem(const sockaddr_in& address) {
  return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

std::ptrdiff_t Outcome(int count) {
  if (count >= 0) return count;
  return WSAGetLastError() == WSAEWOULDBLOCK ? kNothingNow : kFailed;
}

}  // namespace

bool ReadIp(const std::string& text, std::uint32_t& ip) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) return false;
  ip = ntohl(address.s_addr);
  return true;
}

std::string WriteIp(std::uint32_t ip) {
  char text[INET_ADDRSTRLEN];
  in_addr address{};
  address.s_addr = htonl(ip);
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

int OpenSocket(Protocol protocol) {
  StartSockets();
  const int type = protocol == Protocol::Tcp ? SOCK_STREAM : SOCK_DGRAM;
  const SOCKET made =
      WSASocketW(AF_INET, type, 0, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
  if (made != INVALID_SOCKET && protocol == Protocol::Udp) {
    BOOL off = FALSE;  // a client that has gone is no reason to hear no other
    DWORD ignored = 0;
    constexpr DWORD kRefusals = _WSAIOW(IOC_VENDOR, 12);
    WSAIoctl(made, kRefusals, &off, sizeof off, nullptr, 0, &ignored, nullptr, nullptr);
  }
  return ToNumber(made);
}

void CloseSocket(int socket) { closesocket(ToHandle(socket)); }

// With the option several addresses may have one port, which wine refuses otherwise.
bool BindSocket(int socket, const Endpoint& endpoint) {
  const DWORD on = 1;
  setsockopt(ToHandle(socket), SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&on),
             sizeof on);
  const sockaddr_in address = ToSystem(endpoint);
  return bind(ToHandle(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

Endpoint OwnEndpoint(int socket) {
  sockaddr_in address{};
  int size = sizeof address;
  getsockname(ToHandle(socket), reinterpret_cast<sockaddr*>(&address), &size);
  return FromSystem(address);
}

bool ListenOn(int socket, int backlog) { return listen(ToHandle(socket), backlog) == 0; }

int AcceptFrom(int listener) { return ToNumber(accept(ToHandle(listener), nullptr, nullptr)); }

bool ConnectSocket(int socket, const Endpoint& endpoint) {
  const sockaddr_in address = ToSystem(endpoint);
  return connect(ToHandle(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
         0;
}

void SetNonBlocking(int socket) {
  u_long on = 1;
  ioctlsocket(ToHandle(socket), static_cast<long>(FIONBIO), &on);
}

void SetNoDelay(int socket) {
  const DWORD on = 1;
  setsockopt(ToHandle(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
             sizeof on);
}

void SetHardClose(int socket) {
  const linger hard{1, 0};
  setsockopt(ToHandle(socket), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&hard),
             sizeof hard);
}

void EndSending(int socket) { shutdown(ToHandle(socket), SD_SEND); }

std::ptrdiff_t ReceiveFrom(int socket, std::span<char> room, Endpoint* from) {
  sockaddr_in address{};
  int size = sizeof address;
  const int count = recvfrom(ToHandle(socket), room.data(), static_cast<int>(room.size()), 0,
                             reinterpret_cast<sockaddr*>(&address), &size);
  if (from != nullptr) *from = FromSystem(address);
  return Outcome(count);
}

std::ptrdiff_t SendTo(int socket, std::string_view bytes, const Endpoint* to) {
  const auto size = static_cast<int>(std::min<std::size_t>(bytes.size(), 1 << 30));
  if (to == nullptr) return Outcome(send(ToHandle(socket), bytes.data(), size, 0));
  const sockaddr_in address = ToSystem(*to);
  return Outcome(sendto(ToHandle(socket), bytes.data(), size, 0,
                        reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

void Await(std::span<Watched> sockets, int milliseconds) {
  std::vector<WSAPOLLFD> waits;
  std::vector<Watched*> of;
  for (Watched& one : sockets) {
    one.ready = false;
    if (one.socket < 0) continue;
    const auto events = static_cast<short>(one.forRoom ? POLLWRNORM : POLLRDNORM);
    waits.push_back({ToHandle(one.socket), events, 0});
    of.push_back(&one);
  }
  WSAPoll(waits.data(), static_cast<ULONG>(waits.size()), milliseconds);
  for (std::size_t i = 0; i < waits.size(); ++i) of[i]->ready = waits[i].revents != 0;
}

void OpenStop(int& first, int& second) {
  const int door = OpenSocket(Protocol::Tcp);
  second = OpenSocket(Protocol::Tcp);
  const bool open =
      BindSocket(door, {}) && ListenOn(door, 1) && ConnectSocket(second, OwnEndpoint(door));
  first = open ? AcceptFrom(door) : -1;
  CloseSocket(door);
  if (first < 0) std::abort();
}

std::uint32_t ProcessNumber() { return GetCurrentProcessId(); }

}  // namespace netro::testkit
