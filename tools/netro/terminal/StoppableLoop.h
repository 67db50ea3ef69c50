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

#include <atomic>

#include "terminal/System.h"

namespace netro::tool {

class StoppableLoop {
 public:
  ~StoppableLoop() { end_.Cancel(); }

  /// Delivers messages until `isDone`, which is asked after each batch of them, says so.
  template <class Condition>
  void RunUntil(Condition isDone) {
    MessageLoop& loop = MessageLoop::ForThisThread();
    while (!stopped_ && !isDone()) {
      AwaitMessages(loop);
      loop.PumpMessages();
    }
  }

  /// Delivers messages until a message calls End: the loop sleeps by itself, which takes fewer
  /// calls of the system than RunUntil.
  void Run() {
    while (!end_.Done()) end_.Wait();
  }
  void End() { end_.Cancel(); }

  /// Looks names up and is stopped along with the loop.
  ICMPCls& Names() { return names_; }

  bool IsStopped() const { return stopped_; }

  /// Signal-safe.
  void StopWaiting() {
    stopped_ = true;
    end_.Cancel();
    names_.StopWaiting();  // which wakes the thread's loop, whatever waits there
  }

 private:
  ICMPCls names_;
  const Task end_ =
      MessageLoop::ForThisThread().StartTask([] { MessageLoop::ForThisThread().RunLoop(); });
  std::atomic<bool> stopped_ = false;
};

}  // namespace netro::tool
