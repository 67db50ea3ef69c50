// One sink for the events of all classes, which counts them and may do something in one of them.
#pragma once

#include <netro/EchoCls.h>
#include <netro/HTTPCls.h>
#include <netro/ICMPCls.h>
#include <netro/LogfileCLS.h>
#include <netro/SMTPCls.h>
#include <netro/SocketCls.h>

#include <cstddef>
#include <functional>
#include <string>
#include <utility>

namespace netro::torture {

class AllEvents : public SocketClsEvents,
                  public HTTPClsEvents,
                  public SMTPClsEvents,
                  public ICMPClsEvents,
                  public EchoClsEvents,
                  public LogfileCLSEvents {
 public:
  /// Calls `then` in the n-th event from now on.
  void At(std::size_t number, std::function<void()> then) {
    seen_ = 0;
    number_ = number;
    then_ = std::move(then);
  }
  void Never() { At(0, nullptr); }
  std::size_t Seen() const { return seen_; }

  void Connect() override { Event(); }
  void Closed() override { Event(); }
  void SendComplete() override { Event(); }
  void DataArrival(const Bytes&, const std::string&) override { Event(); }
  void Error(std::int32_t, const std::string&) override { Event(); }
  void Status(HTTPCls&, const std::string&) override { Event(); }
  void DisplayProtocol(const std::string&) override { Event(); }
  void DataStatus(std::int32_t, std::int32_t) override { Event(); }
  void Hop(const std::string&, std::int32_t, std::int32_t, bool&) override { Event(); }
  void Reply(std::int32_t, const std::string&, std::int32_t, std::int32_t, std::int32_t) override {
    Event();
  }
  void LoggingStarted() override { Event(); }
  void LoggingStopped() override { Event(); }
  void BufferCommited() override { Event(); }
  void NewLogfile(std::string&) override { Event(); }
  void LogError(std::int32_t, const std::string&) override { Event(); }

 protected:
  virtual void Event() {
    if (seen_++ == number_ && then_) std::exchange(then_, nullptr)();
  }

 private:
  std::size_t seen_ = 0;
  std::size_t number_ = 0;
  std::function<void()> then_;
};

}  // namespace netro::torture
