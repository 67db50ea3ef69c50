#include <netro/testkit/LoopbackServer.h>

#include <chrono>
#include <cstdlib>

#include "testkit/Sockets.h"
#include "testkit/TcpDiag.h"

namespace netro::testkit {
namespace {

constexpr auto kPieceLimit = std::chrono::seconds(2);

Endpoint On(const std::string& host, int port) {
  Endpoint endpoint{0, port};
  ReadIp(host, endpoint.ip);
  return endpoint;
}

// Port 0 becomes a free one.
int BoundSocket(int& port, const std::string& host = "127.0.0.1") {
  const int fd = OpenSocket(Protocol::Tcp);
  if (fd < 0 || !BindSocket(fd, On(host, port))) std::abort();  // a test machine without loopback
  port = OwnEndpoint(fd).port;
  return fd;
}

}  // namespace

Connection::Connection(int fd, int stopFd) : fd_(fd), stopFd_(stopFd), diagFd_(OpenTcpDiag()) {
  if (fd_ < 0) return;
  SetNoDelay(fd_);
  SetNonBlocking(fd_);
}

Connection::~Connection() {
  Close();
  if (diagFd_ >= 0) CloseSocket(diagFd_);
}

bool Connection::Wait(bool forRoom) {
  if (fd_ < 0) return false;
  Watched waits[] = {{fd_, forRoom}, {stopFd_}};
  Await(waits, -1);
  return !waits[1].ready;
}

bool Connection::Read(std::string& into) {
  char block[65536];
  while (Wait(false)) {
    const std::ptrdiff_t n = ReceiveFrom(fd_, block);
    if (n > 0) into.append(block, static_cast<std::size_t>(n));
    if (n != kNothingNow) return n > 0;
  }
  return false;
}

void Connection::ReadAvailable(std::string& into) {
  char block[65536];
  std::ptrdiff_t n;
  while (fd_ >= 0 && (n = ReceiveFrom(fd_, block)) > 0)
    into.append(block, static_cast<std::size_t>(n));
}

void Connection::ReadToEnd(std::string& into) {
  while (Read(into)) {
  }
}

bool Connection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    if (!Wait(true)) return false;
    const std::ptrdiff_t n = SendTo(fd_, bytes);
    if (n == kFailed) return false;
    if (n == kNothingNow) continue;
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
  Watched stop[] = {{stopFd_}};
  Await(stop, static_cast<int>(time.count()));
  return !stop[0].ready;
}

bool Connection::AwaitTaken() {
  const auto deadline = std::chrono::steady_clock::now() + kPieceLimit;
  for (int turn = 0; std::chrono::steady_clock::now() < deadline; ++turn) {
    if (PeerHasRead(diagFd_, fd_, sent_)) return true;
    if (!Pause(std::chrono::milliseconds(turn < 500 ? 0 : 1))) return false;
    std::this_thread::yield();
  }
  return true;
}

void Connection::HalfClose() {
  if (fd_ >= 0) EndSending(fd_);
}

void Connection::Close() {
  if (fd_ >= 0) CloseSocket(fd_);
  fd_ = -1;
}

void Connection::Reset() {
  if (fd_ >= 0) SetHardClose(fd_);
  Close();
}

LoopbackServer::LoopbackServer(Serve serve, int port, const std::string& address)
    : serve_(std::move(serve)), port_(port) {
  OpenStop(stopRead_, stopWrite_);
  listenFd_ = BoundSocket(port_, address);
  SetNonBlocking(listenFd_);
  ListenOn(listenFd_, 128);
  acceptor_ = std::thread([this] { AcceptLoop(); });
}

LoopbackServer::~LoopbackServer() {
  CloseSocket(stopWrite_);  // wakes every poll on the other end
  acceptor_.join();
  for (Worker& worker : workers_) worker.thread.join();
  CloseSocket(listenFd_);
  CloseSocket(stopRead_);
}

void LoopbackServer::AcceptLoop() {
  for (;;) {
    Watched waits[] = {{listenFd_}, {stopRead_}};
    Await(waits, -1);
    if (waits[1].ready) return;
    const int fd = AcceptFrom(listenFd_);
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
    Watched waits[] = {
        {open[0] ? client.Fd() : -1}, {open[1] ? target.Fd() : -1}, {client.StopFd()}};
    Await(waits, -1);
    if (waits[2].ready) return;
    for (int i = 0; i < 2; ++i) {
      if (!waits[i].ready) continue;
      std::string block;
      open[i] = ends[i]->Read(block);
      if (!open[i]) ends[1 - i]->HalfClose();
      if (!ends[1 - i]->Send(block)) return;
    }
  }
}

int ConnectToLoopback(int port) {
  const int fd = OpenSocket(Protocol::Tcp);
  if (ConnectSocket(fd, {Endpoint().ip, port})) return fd;
  CloseSocket(fd);
  return -1;
}

RefusingPort::RefusingPort() : port_(0) { fd_ = BoundSocket(port_); }
RefusingPort::~RefusingPort() { CloseSocket(fd_); }

HangingPort::HangingPort(int port, const std::string& host)
    : fd_(BoundSocket(port, host)), port_(port) {
  ListenOn(fd_, 0);
  for (int i = 0; i < 4; ++i) {  // the first ones fill the queue, the rest stay unanswered
    fillers_.push_back(OpenSocket(Protocol::Tcp));
    SetNonBlocking(fillers_.back());
    ConnectSocket(fillers_.back(), On(host, port_));
  }
}

HangingPort::~HangingPort() {
  for (const int filler : fillers_) CloseSocket(filler);
  CloseSocket(fd_);
}

}  // namespace netro::testkit
