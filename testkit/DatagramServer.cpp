#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netro/testkit/DatagramServer.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

namespace netro::testkit {
namespace {

constexpr auto kPatience = std::chrono::seconds(5);

sockaddr_in Address(std::uint32_t ip, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(ip);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

// A datagram socket of this address; -1 when it may not be had.
int Bound(std::uint32_t ip, int port) {
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

}  // namespace

DatagramServer::DatagramServer(Answer answer, int port, std::uint32_t ip)
    : answer_(std::move(answer)), ip_(ip) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  stopRead_ = ends[0];
  stopWrite_ = ends[1];
  otherPortFd_ = Bound(ip_, 0);
  markFd_ = Bound(ip_, 0);
  while (!Bind(port) && port == 0) {  // until a free port is free at the next address as well
  }
  if (IsUp()) thread_ = std::thread([this] { Loop(); });
}

DatagramServer::~DatagramServer() {
  close(stopWrite_);  // wakes the other end
  if (thread_.joinable()) thread_.join();
  for (const int fd : {fd_, otherPortFd_, otherAddressFd_, markFd_, stopRead_})
    if (fd >= 0) close(fd);
}

bool DatagramServer::Bind(int port) {
  if (fd_ >= 0) close(fd_);
  fd_ = Bound(ip_, port);
  if (fd_ < 0) return false;
  port_ = PortOf(fd_);
  otherAddressFd_ = Bound(ip_ + 1, port_);
  return IsUp();
}

std::string DatagramServer::Ip() const {
  char text[INET_ADDRSTRLEN];
  const in_addr address{htonl(ip_)};
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

std::vector<std::string> DatagramServer::Received() {
  std::unique_lock lock(mutex_);
  // Datagrams of one machine stay in order, so this one is behind all that were sent before.
  const std::size_t target = marks_ + 1;
  const sockaddr_in address = Address(ip_, port_);
  sendto(markFd_, "", 0, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  changed_.wait_for(lock, kPatience, [&] { return marks_ >= target; });
  return received_;
}

void DatagramServer::Loop() {
  for (;;) {
    pollfd waits[] = {{fd_, POLLIN, 0}, {stopRead_, POLLIN, 0}};
    if (poll(waits, 2, -1) < 0 && errno != EINTR) return;
    if (waits[1].revents != 0) return;
    if (waits[0].revents != 0) TakeDatagram();
  }
}

void DatagramServer::TakeDatagram() {
  std::string datagram(65536, '\0');
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const ssize_t n =
      recvfrom(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
  if (n < 0) return;
  datagram.resize(static_cast<std::size_t>(n));
  const bool mark = ntohs(from.sin_port) == PortOf(markFd_);
  {
    const std::lock_guard lock(mutex_);
    if (mark) {
      ++marks_;
    } else {
      received_.push_back(datagram);
      ++count_;
    }
    changed_.notify_all();
  }
  if (mark) return;
  const std::string to(reinterpret_cast<const char*>(&from), size);
  for (const Reply& reply : answer_(datagram)) Send(reply, to);
}

// `to`: an address of the system.
void DatagramServer::Send(const Reply& reply, const std::string& to) {
  const int fd = reply.from == From::kServer      ? fd_
                 : reply.from == From::kOtherPort ? otherPortFd_
                                                  : otherAddressFd_;
  sendto(fd, reply.bytes.data(), reply.bytes.size(), 0,
         reinterpret_cast<const sockaddr*>(to.data()), static_cast<socklen_t>(to.size()));
}

std::unique_ptr<DatagramServer> ServeOnOwnAddress(const DatagramServer::Answer& answer, int port) {
  const auto start = static_cast<std::uint32_t>(getpid()) * 8 % 0x3F'0000;
  for (std::uint32_t next = 0; next < 64; next += 2) {
    auto server = std::make_unique<DatagramServer>(answer, port, 0x7F40'0002 + start + next);
    if (server->IsUp()) return server;
  }
  return nullptr;
}

}  // namespace netro::testkit
