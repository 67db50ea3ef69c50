#include "DnsServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

namespace netro::peers {
namespace {

constexpr auto kPatience = std::chrono::seconds(5);
constexpr in_addr_t kOther = INADDR_LOOPBACK + 1;

sockaddr_in Address(in_addr_t ip, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(ip);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

// A datagram socket of this address; -1 when it is taken.
int Bound(in_addr_t ip, int port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Address(ip, port);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  close(fd);
  return -1;
}

int PortOf(int fd) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

// Reads on until `bytes` holds a whole framed message and takes it from the front.
bool ReadMessage(Connection& connection, std::string& bytes, std::string& message) {
  for (;;) {
    if (bytes.size() >= 2) {
      const std::size_t size = static_cast<std::size_t>(static_cast<std::uint8_t>(bytes[0])) * 256 +
                               static_cast<std::uint8_t>(bytes[1]);
      if (bytes.size() >= 2 + size) {
        message = bytes.substr(2, size);
        bytes.erase(0, 2 + size);
        return true;
      }
    }
    if (!connection.Read(bytes)) return false;
  }
}

}  // namespace

DnsServer::DnsServer(Answer answer, Talk talk)
    : answer_(std::move(answer)), talk_(std::move(talk)) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  stopRead_ = ends[0];
  stopWrite_ = ends[1];
  otherPortFd_ = Bound(INADDR_LOOPBACK, 0);
  markFd_ = Bound(INADDR_LOOPBACK, 0);
  while (udpFd_ < 0 || otherAddressFd_ < 0) {  // until a free port of TCP is one of UDP as well
    if (udpFd_ >= 0) close(udpFd_);
    tcp_ = std::make_unique<LoopbackServer>(
        [this](Connection& connection, std::size_t) { ServeConnection(connection); });
    udpFd_ = Bound(INADDR_LOOPBACK, Port());
    otherAddressFd_ = Bound(kOther, Port());
  }
  udpThread_ = std::thread([this] { UdpLoop(); });
}

DnsServer::~DnsServer() {
  tcp_.reset();
  close(stopWrite_);  // wakes the other end
  udpThread_.join();
  for (const int fd : {udpFd_, otherPortFd_, otherAddressFd_, markFd_, stopRead_}) close(fd);
}

std::vector<std::string> DnsServer::Queries() {
  std::unique_lock lock(mutex_);
  // Datagrams of one machine stay in order, so this one is behind all that were sent before.
  const std::size_t target = marks_ + 1;
  const sockaddr_in address = Address(INADDR_LOOPBACK, Port());
  sendto(markFd_, "", 0, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  changed_.wait_for(lock, kPatience, [&] { return marks_ >= target; });
  return queries_;
}

bool DnsServer::AwaitQueries(std::size_t count) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kPatience, [&] { return queries_.size() >= count; });
}

void DnsServer::Keep(const std::string& query) {
  const std::lock_guard lock(mutex_);
  queries_.push_back(query);
  ++count_;
  changed_.notify_all();
}

void DnsServer::UdpLoop() {
  for (;;) {
    pollfd waits[] = {{udpFd_, POLLIN, 0}, {stopRead_, POLLIN, 0}};
    if (poll(waits, 2, -1) < 0 && errno != EINTR) return;
    if (waits[1].revents != 0) return;
    if (waits[0].revents != 0) TakeDatagram();
  }
}

void DnsServer::TakeDatagram() {
  std::string query(65536, '\0');
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const ssize_t n =
      recvfrom(udpFd_, query.data(), query.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
  if (n < 0) return;
  if (ntohs(from.sin_port) == PortOf(markFd_)) {
    const std::lock_guard lock(mutex_);
    ++marks_;
    changed_.notify_all();
    return;
  }
  query.resize(static_cast<std::size_t>(n));
  Keep(query);
  for (const Reply& reply : answer_(query)) SendDatagram(reply, from);
}

void DnsServer::SendDatagram(const Reply& reply, const sockaddr_in& to) {
  const int fd = reply.from == From::kServer      ? udpFd_
                 : reply.from == From::kOtherPort ? otherPortFd_
                                                  : otherAddressFd_;
  sendto(fd, reply.bytes.data(), reply.bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
         sizeof to);
}

void DnsServer::ServeConnection(Connection& connection) {
  std::string bytes;
  std::string query;
  while (ReadMessage(connection, bytes, query)) {
    Keep(query);
    if (talk_) return talk_(connection, query);
    for (const Reply& reply : answer_(query)) connection.Send(dns::Framed(reply.bytes));
  }
}

}  // namespace netro::peers
