// What the socket tests share: a sink that writes down what happened, and pumping with a limit.
#pragma once

#include <netro/SocketCls.h>

#include <future>

#include "SystemKit.h"
#include "TestKit.h"

namespace netro {

/// Pumps until `done()` or a minute is over, which only a failure takes; sleeps on the loop's
/// descriptor, as a host would, or pumps again and again where there is none.
inline bool PumpUntil(const std::function<bool()>& done) {
  MessageLoop& loop = MessageLoop::ForThisThread();
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!done()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    AwaitReadable(loop.LoopFd(), 100);
    loop.PumpMessages();
  }
  return true;
}

/// Records each event with the state that the socket had in it; `hook` may then do anything.
class Recorder : public SocketClsEvents {
 public:
  explicit Recorder(SocketCls& socket) : socket_(&socket) { socket.Events(this); }

  void Connect() override { Note("Connect"); }
  void Closed() override { Note("Closed"); }
  void SendComplete() override { Note("SendComplete"); }
  void DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) override {
    received.append(BinData.begin(), BinData.end());
    sizes.push_back(BinData.size());
    from = RemoteHostIP;
    Note("DataArrival");
  }
  void ConnectionRequest(std::int32_t RequestID) override {
    request = RequestID;
    Note("ConnectionRequest");
  }
  void Error(std::int32_t Error, const std::string& Description) override {
    error = Error;
    description = Description;
    Note("Error");
  }

  bool Saw(const std::string& event) const {
    for (const std::string& one : events) {
      if (one == event) return true;
    }
    return false;
  }

  std::vector<std::string> events;
  std::vector<SockType> states;
  std::vector<std::size_t> sizes;
  std::string received;
  std::string from;
  std::int32_t request = 0;
  std::int32_t error = 0;
  std::string description;
  std::function<void(const std::string& event)> hook;

 private:
  void Note(const std::string& event) {
    events.push_back(event);
    states.push_back(socket_->State());
    if (hook) hook(event);
  }

  SocketCls* socket_;
};

/// Sockets with their recorders, connected one after the other; `prepare` may set the hooks.
class Crowd {
 public:
  bool Connect(int count, int port, const std::function<void(SocketCls&, Recorder&)>& prepare);
  std::vector<std::unique_ptr<SocketCls>> sockets;

 private:
  std::vector<std::unique_ptr<Recorder>> recorders_;
};

struct SocketTest : testing::Test {
  SocketCls socket;
  Recorder recorder{socket};
};

/// A server that leaves what its client sends unread until it is told.
class SlowReader {
 public:
  int Port() const { return server_.Port(); }
  /// Reads to the end of the stream from now on.
  void Read() { todo_ = Todo::kRead; }
  /// Ends its own sending, and goes on reading nothing.
  void HalfClose() { todo_ = Todo::kHalfClose; }
  void Reset() { todo_ = Todo::kReset; }
  /// What Read has read; waits for the end of the stream, five seconds at most.
  std::string Received() {
    auto received = received_.get_future();
    const bool ended = received.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    return ended ? received.get() : "no end";
  }

 private:
  enum class Todo { kNothing, kRead, kHalfClose, kReset };

  void Serve(testkit::Connection& connection) {
    while (connection.Pause(1ms)) {
      const Todo todo = todo_.exchange(Todo::kNothing);
      if (todo == Todo::kHalfClose) connection.HalfClose();
      if (todo == Todo::kReset) return connection.Reset();
      if (todo != Todo::kRead) continue;
      std::string text;
      while (connection.Read(text)) continue;
      return received_.set_value(std::move(text));
    }
  }

  std::atomic<Todo> todo_{Todo::kNothing};
  std::promise<std::string> received_;
  testkit::LoopbackServer server_{
      [this](testkit::Connection& connection, std::size_t) { Serve(connection); }};
};

/// Connects to a port of 127.0.0.1 and waits for the outcome. A peer that closes at once may have
/// been heard already; only a failed connect has no handle.
inline bool ConnectAndWait(SocketCls& socket, int port) {
  return socket.Connect("127.0.0.1", port) &&
         PumpUntil([&] { return socket.State() != sockConnecting; }) && socket.SocketHandle() != 0;
}

inline bool Crowd::Connect(int count, int port,
                           const std::function<void(SocketCls&, Recorder&)>& prepare) {
  for (int i = 0; i < count; ++i) {
    SocketCls& socket = *sockets.emplace_back(std::make_unique<SocketCls>());
    prepare(socket, *recorders_.emplace_back(std::make_unique<Recorder>(socket)));
    if (!ConnectAndWait(socket, port)) return false;
  }
  return true;
}

}  // namespace netro
