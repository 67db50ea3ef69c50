// One connection whose events are kept, and a wait that ends with them. Thread: the loop's.
#pragma once

#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>
#include <netro/Task.h>

#include <chrono>
#include <functional>
#include <string>
#include <utility>

namespace netro::tool {

/// Something that is waited for, with a limit.
class Signal {
 public:
  ~Signal() { sleeper_.Cancel(); }

  void Raise() {
    raised_ = true;
    sleeper_.Cancel();
  }
  /// Blocks until Raise, the limit or Ctrl-C.
  void Await(std::chrono::milliseconds limit) {
    if (raised_) return;
    sleeper_ = MessageLoop::ForThisThread().StartTask(
        [limit] { (void)MessageLoop::ForThisThread().Sleep(limit); });
    sleeper_.Wait();
  }

 private:
  Task sleeper_;
  bool raised_ = false;
};

class Line : private SocketClsEvents {
 public:
  /// Begins to connect to an address; `changed` is called whenever something has happened.
  Line(const std::string& address, std::int32_t port, std::function<void()> changed)
      : changed_(std::move(changed)) {
    socket.Events(this);
    if (!socket.Connect(address, port)) error = socket.LastSocketErr();
  }

  bool IsDecided() const { return isOpen || error != 0; }

  SocketCls socket;
  bool isOpen = false;
  bool isClosed = false;
  std::int32_t error = 0;
  std::string errorText;
  std::string received;

 private:
  void Connect() override {
    isOpen = true;
    changed_();
  }
  void Error(std::int32_t number, const std::string& text) override {
    error = number;
    errorText = text;
    changed_();
  }
  void DataArrival(const Bytes& data, const std::string&) override {
    constexpr std::size_t kEnough = 1000;
    if (received.size() < kEnough) received.append(data.begin(), data.end());
    changed_();
  }
  void Closed() override {
    isClosed = true;
    changed_();
  }

  const std::function<void()> changed_;
};

}  // namespace netro::tool
