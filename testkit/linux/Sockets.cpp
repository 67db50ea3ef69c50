#include "testkit/Sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace netro::testkit {
namespace {

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

std::ptrdiff_t Outcome(ssize_t count) {
  if (count >= 0) return count;
  return errno == EAGAIN || errno == EINTR ? kNothingNow : kFailed;
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
  const in_addr address{htonl(ip)};
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

int OpenSocket(Protocol protocol) {
  const int type = protocol == Protocol::Tcp ? SOCK_STREAM : SOCK_DGRAM;
  return socket(AF_INET, type | SOCK_CLOEXEC, 0);
}

void CloseSocket(int socket) { close(socket); }

bool BindSocket(int socket, const Endpoint& endpoint) {
  const sockaddr_in address = ToSystem(endpoint);
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

Endpoint OwnEndpoint(int socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return FromSystem(address);
}

bool ListenOn(int socket, int backlog) { return listen(socket, backlog) == 0; }

int AcceptFrom(int listener) { return accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); }

bool ConnectSocket(int socket, const Endpoint& endpoint) {
  const sockaddr_in address = ToSystem(endpoint);
  return connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

void SetNonBlocking(int socket) { fcntl(socket, F_SETFL, O_NONBLOCK); }

void SetNoDelay(int socket) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void SetHardClose(int socket) {
  const linger hard{1, 0};
  setsockopt(socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
}

void EndSending(int socket) { shutdown(socket, SHUT_WR); }

std::ptrdiff_t ReceiveFrom(int socket, std::span<char> room, Endpoint* from) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  const ssize_t count =
      recvfrom(socket, room.data(), room.size(), 0, reinterpret_cast<sockaddr*>(&address), &size);
  if (from != nullptr) *from = FromSystem(address);
  return Outcome(count);
}

std::ptrdiff_t SendTo(int socket, std::string_view bytes, const Endpoint* to) {
  if (to == nullptr) return Outcome(send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL));
  const sockaddr_in address = ToSystem(*to);
  return Outcome(sendto(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

void Await(std::span<Watched> sockets, int milliseconds) {
  std::vector<pollfd> waits;
  for (const Watched& one : sockets) {
    waits.push_back({one.socket, static_cast<short>(one.forRoom ? POLLOUT : POLLIN), 0});
  }
  const int count = poll(waits.data(), waits.size(), milliseconds);
  for (std::size_t i = 0; i < waits.size(); ++i) {
    sockets[i].ready = count > 0 && waits[i].revents != 0;
  }
}

void OpenStop(int& first, int& second) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  first = ends[0];
  second = ends[1];
}

std::uint32_t ProcessNumber() { return static_cast<std::uint32_t>(getpid()); }

}  // namespace netro::testkit
