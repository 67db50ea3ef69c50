#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <netro/testkit/LoopbackServer.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "testkit/TcpDiag.h"

namespace netro::testkit {
namespace {

constexpr auto kPieceLimit = std::chrono::seconds(2);

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

// Port 0 becomes a free one.
int BoundSocket(int& port, const std::string& host = "127.0.0.1") {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Loopback(port);
  inet_pton(AF_INET, host.c_str(), &address.sin_addr);
  socklen_t size = sizeof address;
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    std::abort();  // a test machine without loopback
  port = ntohs(address.sin_port);
  return fd;
}

}  // namespace

Connection::Connection(int fd, int stopFd) : fd_(fd), stopFd_(stopFd), diagFd_(OpenTcpDiag()) {
  const int on = 1;
  setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  fcntl(fd_, F_SETFL, O_NONBLOCK);
}

Connection::~Connection() {
  Close();
  if (diagFd_ >= 0) close(diagFd_);
}

bool Connection::Wait(short events) {
  pollfd waits[] = {{fd_, events, 0}, {stopFd_, POLLIN, 0}};
  return fd_ >= 0 && poll(waits, 2, -1) > 0 && waits[1].revents == 0;
}

bool Connection::Read(std::string& into) {
  char block[65536];
  while (Wait(POLLIN)) {
    const ssize_t n = recv(fd_, block, sizeof block, 0);
    if (n > 0) into.append(block, static_cast<std::size_t>(n));
    if (n >= 0 || (errno != EAGAIN && errno != EINTR)) return n > 0;
  }
  return false;
}

void Connection::ReadAvailable(std::string& into) {
  char block[65536];
  ssize_t n;
  while (fd_ >= 0 && (n = recv(fd_, block, sizeof block, 0)) > 0)
    into.append(block, static_cast<std::size_t>(n));
}

void Connection::ReadToEnd(std::string& into) {
  while (Read(into)) {
  }
}

bool Connection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    if (!Wait(POLLOUT)) return false;
    const ssize_t n = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n < 0 && errno != EAGAIN && errno != EINTR) return false;
    if (n < 0) continue;
    sent_ += static_cast<std::uint64_t>(n);
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

bool Connection::SendCut(std::string_view bytes, const std::vector<std::size_t>& cuts) {
  std::size_t begin = 0;
  for (const std::size_t cut : cuts) {
    if (cut <= begin || cut >= bytes.size()) continue;
    if (!Send(bytes.substr(begin, cut - begin)) || !AwaitTaken()) return false;
    begin = cut;
  }
  return Send(bytes.substr(begin));
}

bool Connection::Give(const Response& response) {
  if (response.delay.count() > 0 && !Pause(response.delay)) return false;
  if (!SendCut(response.bytes, response.cuts)) return false;
  std::string rest;
  switch (response.after) {
    case After::GoOn:
      return true;
    case After::Close:
      HalfClose();
      ReadToEnd(rest);
      break;
    case After::Reset:
      ReadAvailable(rest);
      Reset();
      break;
    case After::Stay:
      ReadToEnd(rest);
      break;
  }
  return false;
}

bool Connection::Pause(std::chrono::milliseconds time) {
  pollfd stop{stopFd_, POLLIN, 0};
  return poll(&stop, 1, static_cast<int>(time.count())) == 0;
}

bool Connection::AwaitTaken() {
  const auto deadline = std::chrono::steady_clock::now() + kPieceLimit;
  for (int turn = 0; std::chrono::steady_clock::now() < deadline; ++turn) {
    if (PeerHasRead(diagFd_, fd_, sent_)) return true;
    pollfd stop{stopFd_, POLLIN, 0};
    if (poll(&stop, 1, turn < 500 ? 0 : 1) != 0) return false;
    std::this_thread::yield();
  }
  return true;
}

void Connection::HalfClose() {
  if (fd_ >= 0) shutdown(fd_, SHUT_WR);
}

void Connection::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

void Connection::Reset() {
  const linger hard{1, 0};
  if (fd_ >= 0) setsockopt(fd_, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  Close();
}

LoopbackServer::LoopbackServer(Serve serve, int port, const std::string& address)
    : serve_(std::move(serve)), port_(port) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  stopRead_ = ends[0];
  stopWrite_ = ends[1];
  listenFd_ = BoundSocket(port_, address);
  fcntl(listenFd_, F_SETFL, O_NONBLOCK);
  listen(listenFd_, 128);
  acceptor_ = std::thread([this] { AcceptLoop(); });
}

LoopbackServer::~LoopbackServer() {
  close(stopWrite_);  // wakes every poll on the other end
  acceptor_.join();
  for (Worker& worker : workers_) worker.thread.join();
  close(listenFd_);
  close(stopRead_);
}

void LoopbackServer::AcceptLoop() {
  for (;;) {
    pollfd waits[] = {{listenFd_, POLLIN, 0}, {stopRead_, POLLIN, 0}};
    if (poll(waits, 2, -1) < 0 && errno != EINTR) return;
    if (waits[1].revents != 0) return;
    const int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    JoinFinished();
    StartWorker(fd);
  }
}

void LoopbackServer::StartWorker(int fd) {
  const std::size_t number = connections_++;
  Worker& worker = workers_.emplace_back();
  worker.thread = std::thread([this, &worker, fd, number] {
    Connection connection(fd, stopRead_);
    serve_(connection, number);
    connection.Close();
    worker.done = true;
  });
}

void LoopbackServer::JoinFinished() {
  workers_.remove_if([](Worker& worker) {
    const bool done = worker.done;
    if (done) worker.thread.join();
    return done;
  });
}

void Relay(Connection& client, int port) {
  Connection target(ConnectToLoopback(port), client.StopFd());
  if (target.Fd() < 0) return;
  Connection* ends[] = {&client, &target};
  bool open[] = {true, true};
  while (open[0] || open[1]) {
    pollfd waits[] = {{open[0] ? client.Fd() : -1, POLLIN, 0},
                      {open[1] ? target.Fd() : -1, POLLIN, 0},
                      {client.StopFd(), POLLIN, 0}};
    if (poll(waits, 3, -1) <= 0 || waits[2].revents != 0) return;
    for (int i = 0; i < 2; ++i) {
      if (waits[i].revents == 0) continue;
      std::string block;
      open[i] = ends[i]->Read(block);
      if (!open[i]) ends[1 - i]->HalfClose();
      if (!ends[1 - i]->Send(block)) return;
    }
  }
}

int ConnectToLoopback(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  close(fd);
  return -1;
}

RefusingPort::RefusingPort() : port_(0) { fd_ = BoundSocket(port_); }
RefusingPort::~RefusingPort() { close(fd_); }

HangingPort::HangingPort(int port, const std::string& host)
    : fd_(BoundSocket(port, host)), port_(port) {
  listen(fd_, 0);
  sockaddr_in address = Loopback(port_);
  inet_pton(AF_INET, host.c_str(), &address.sin_addr);
  for (int i = 0; i < 4; ++i) {  // the first ones fill the queue, the rest stay unanswered
    fillers_.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    connect(fillers_.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
}

HangingPort::~HangingPort() {
  for (const int filler : fillers_) close(filler);
  close(fd_);
}

}  // namespace netro::testkit
