// Waiting for events of objects that do not block, until something is done or Ctrl-C comes:
//
//     StoppableLoop loop;
//     const InterruptGuard guard(loop);
//     loop.RunUntil([&] { return echo.Pending() == 0; });
//
// Thread: the loop's.
#pragma once

#include <netro/ICMPCls.h>
#include <netro/MessageLoop.h>
#include <poll.h>

#include <atomic>

namespace netro::tool {

class StoppableLoop {
 public:
  /// Delivers messages until `isDone`, which is asked after each batch of them, says so.
  template <class Condition>
  void RunUntil(Condition isDone) {
    MessageLoop& loop = MessageLoop::ForThisThread();
    pollfd watched{loop.LoopFd(), POLLIN, 0};
    while (!stopped_ && !isDone()) {
      ::poll(&watched, 1, -1);
      loop.PumpMessages();
    }
  }

  /// Looks names up and is stopped along with the loop.
  ICMPCls& Names() { return names_; }

  bool IsStopped() const { return stopped_; }

  /// Signal-safe.
  void StopWaiting() {
    stopped_ = true;
    names_.StopWaiting();  // which wakes the thread's loop, whatever waits there
  }

 private:
  ICMPCls names_;
  std::atomic<bool> stopped_ = false;
};

}  // namespace netro::tool
