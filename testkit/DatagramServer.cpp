#include <netro/testkit/DatagramServer.h>

#include <chrono>

#include "testkit/Sockets.h"

namespace netro::testkit {
namespace {

constexpr auto kPatience = std::chrono::seconds(5);

// A datagram socket of this address; -1 when it may not be had.
int Bound(std::uint32_t ip, int port) {
  const int fd = OpenSocket(Protocol::Udp);
  if (BindSocket(fd, {ip, port})) return fd;
  CloseSocket(fd);
  return -1;
}

int PortOf(int fd) { return OwnEndpoint(fd).port; }

}  // namespace

DatagramServer::DatagramServer(Answer answer, int port, std::uint32_t ip)
    : answer_(std::move(answer)), ip_(ip) {
  OpenStop(stopRead_, stopWrite_);
  otherPortFd_ = Bound(ip_, 0);
  markFd_ = Bound(ip_, 0);
  while (!Bind(port) && port == 0) {  // until a free port is free at the next address as well
  }
  if (IsUp()) thread_ = std::thread([this] { Loop(); });
}

DatagramServer::~DatagramServer() {
  CloseSocket(stopWrite_);  // wakes the other end
  if (thread_.joinable()) thread_.join();
  for (const int fd : {fd_, otherPortFd_, otherAddressFd_, markFd_, stopRead_})
    if (fd >= 0) CloseSocket(fd);
}

bool DatagramServer::Bind(int port) {
  if (fd_ >= 0) CloseSocket(fd_);
  fd_ = Bound(ip_, port);
  if (fd_ < 0) return false;
  port_ = PortOf(fd_);
  otherAddressFd_ = Bound(ip_ + 1, port_);
  return IsUp();
}

std::string DatagramServer::Ip() const { return WriteIp(ip_); }

std::vector<std::string> DatagramServer::Received() {
  std::unique_lock lock(mutex_);
  // Datagrams of one machine stay in order, so this one is behind all that were sent before.
  const std::size_t target = marks_ + 1;
  const Endpoint server{ip_, port_};
  SendTo(markFd_, "", &server);
  changed_.wait_for(lock, kPatience, [&] { return marks_ >= target; });
  return received_;
}

void DatagramServer::Loop() {
  for (;;) {
    Watched waits[] = {{fd_}, {stopRead_}};
    Await(waits, -1);
    if (waits[1].ready) return;
    if (waits[0].ready) TakeDatagram();
  }
}

void DatagramServer::TakeDatagram() {
  std::string datagram(65536, '\0');
  Endpoint from;
  const std::ptrdiff_t n = ReceiveFrom(fd_, datagram, &from);
  if (n < 0) return;
  datagram.resize(static_cast<std::size_t>(n));
  const bool mark = from.port == PortOf(markFd_);
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
  for (const Reply& reply : answer_(datagram)) Send(reply, from.ip, from.port);
}

void DatagramServer::Send(const Reply& reply, std::uint32_t ip, int port) {
  const int fd = reply.from == From::kServer      ? fd_
                 : reply.from == From::kOtherPort ? otherPortFd_
                                                  : otherAddressFd_;
  const Endpoint to{ip, port};
  SendTo(fd, reply.bytes, &to);
}

std::unique_ptr<DatagramServer> ServeOnOwnAddress(const DatagramServer::Answer& answer, int port) {
  const auto start = ProcessNumber() * 8 % 0x3F'0000;
  for (std::uint32_t next = 0; next < 64; next += 2) {
    auto server = std::make_unique<DatagramServer>(answer, port, 0x7F40'0002 + start + next);
    if (server->IsUp()) return server;
  }
  return nullptr;
}

}  // namespace netro::testkit
