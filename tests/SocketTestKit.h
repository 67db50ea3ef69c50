// What the socket tests share: a sink that writes down what happened, and pumping with a limit.
#pragma once

#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>
#include <poll.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace netro {

/// Pumps until `done()` or five seconds are over; sleeps on the loop's descriptor, as a host would.
inline bool PumpUntil(const std::function<bool()>& done) {
  MessageLoop& loop = MessageLoop::ForThisThread();
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!done()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    pollfd entry{loop.LoopFd(), POLLIN, 0};
    poll(&entry, 1, 100);
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

/// Connects to a port of 127.0.0.1 and waits for the outcome. A peer that closes at once may have
/// been heard already; only a failed connect has no handle.
inline bool ConnectAndWait(SocketCls& socket, int port) {
  return socket.Connect("127.0.0.1", port) &&
         PumpUntil([&] { return socket.State() != sockConnecting; }) && socket.SocketHandle() != 0;
}

}  // namespace netro
