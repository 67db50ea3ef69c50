// A host with a poll loop of its own, which watches the library's loop as one descriptor among its
// others. Here the others are a pipe, which carries the host's word that the work is done.
//
// The library is used by events only: a client connects to a server in the same program, sends a
// line, and gets it echoed. This is a self-check: it ends with 0 when the echo came back.
#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

const std::string kLine = "hello from the poll loop\n";

/// The server's end of the one connection.
class EchoConnection : public netro::SocketClsEvents {
 public:
  EchoConnection() { socket_.Events(this); }
  void TakeOver(std::int32_t requestId) { socket_.Accept(requestId); }

  void DataArrival(const netro::Bytes& BinData, const std::string&) override {
    socket_.SendData(BinData);
  }

 private:
  netro::SocketCls socket_;
};

class EchoServer : public netro::SocketClsEvents {
 public:
  EchoServer() { listener_.Events(this); }
  bool Start() { return listener_.Listen("127.0.0.1"); }
  std::int32_t Port() const { return listener_.LocalPort(); }

  void ConnectionRequest(std::int32_t RequestID) override { connection_.TakeOver(RequestID); }

 private:
  netro::SocketCls listener_;
  EchoConnection connection_;
};

class Client : public netro::SocketClsEvents {
 public:
  explicit Client(int hostPipe) : hostPipe_(hostPipe) { socket_.Events(this); }
  bool Start(std::int32_t port) { return socket_.Connect("127.0.0.1", port); }
  const std::string& Echo() const { return echo_; }

  void Connect() override { socket_.SendData(kLine); }
  void DataArrival(const netro::Bytes& BinData, const std::string&) override {
    echo_.append(BinData.begin(), BinData.end());
    if (echo_.size() == kLine.size()) {
      TellHost();
    }
  }
  void Closed() override { TellHost(); }
  void Error(std::int32_t, const std::string& Description) override {
    std::printf("no connection: %s\n", Description.c_str());
    TellHost();
  }

 private:
  void TellHost() { (void)!write(hostPipe_, "x", 1); }

  netro::SocketCls socket_;
  int hostPipe_;
  std::string echo_;
};

/// Turns until the pipe speaks; false when nothing happened for ten seconds.
bool RunHostLoop(int hostPipe) {
  netro::MessageLoop& library = netro::MessageLoop::ForThisThread();
  pollfd watched[] = {{library.LoopFd(), POLLIN, 0}, {hostPipe, POLLIN, 0}};
  while (poll(watched, 2, 10'000) > 0) {
    if (watched[1].revents != 0) {
      return true;
    }
    if (watched[0].revents != 0) {
      library.PumpMessages();
    }
  }
  return false;
}

}  // namespace

int main() {
  int hostPipe[2];
  EchoServer server;
  if (pipe(hostPipe) != 0 || !server.Start()) {
    return 1;
  }
  Client client(hostPipe[1]);
  if (!client.Start(server.Port()) || !RunHostLoop(hostPipe[0])) {
    return 1;
  }
  std::printf("echoed: %s", client.Echo().c_str());
  return client.Echo() == kLine ? 0 : 1;
}
