// A small HTTP server on the calling thread's loop that lets its client wait: it answers the one
// request half a second late. Used by the examples that show what a host does meanwhile.
#pragma once

#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>

#include <string>

class LateServer : public netro::SocketClsEvents {
 public:
  static constexpr std::int32_t kDelayMilliseconds = 500;

  LateServer() { listener_.Events(this); }
  ~LateServer() override { loop_.KillTimer(timer_); }

  bool Start() { return listener_.Listen("127.0.0.1"); }
  std::string URL() const { return "http://127.0.0.1:" + std::to_string(listener_.LocalPort()); }

  void ConnectionRequest(std::int32_t RequestID) override {
    connection_.Accept(RequestID);
    timer_ = loop_.SetTimer(kDelayMilliseconds, [this] { Answer(); });
  }

 private:
  void Answer() {
    loop_.KillTimer(timer_);
    connection_.SendData(
        "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 7\r\n\r\nat last");
  }

  netro::MessageLoop& loop_ = netro::MessageLoop::ForThisThread();
  netro::SocketCls listener_;
  netro::SocketCls connection_;
  std::int32_t timer_ = 0;
};
