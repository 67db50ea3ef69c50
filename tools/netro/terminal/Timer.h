// A timer of the calling thread's loop that lives as long as this object.
#pragma once

#include <netro/MessageLoop.h>

#include <cstdint>
#include <functional>
#include <utility>

namespace netro::tool {

class Timer {
 public:
  Timer(std::int32_t milliseconds, std::function<void()> callback)
      : id_(MessageLoop::ForThisThread().SetTimer(milliseconds, std::move(callback))) {}
  ~Timer() { MessageLoop::ForThisThread().KillTimer(id_); }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

 private:
  std::int32_t id_;
};

}  // namespace netro::tool
