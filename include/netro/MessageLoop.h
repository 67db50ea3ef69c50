// The message loop that keeps a program alive while the library waits.
//
// Every thread that uses the library has one loop, made on first use and destroyed when the thread
// ends and the last object that was created on it is gone. Socket notifications, timers and posted
// functions are delivered on that thread only, from inside PumpMessages, RunLoop or a blocking
// call; tasks run there too.
//
// A host with a loop of its own chooses one of two ways, or both:
//   - watch LoopFd() for readability, call PumpMessages() when it is readable, and make its
//   blocking
//     calls in tasks;
//   - give SetHostPump a function that turns the host's loop once, so that it stays alive during
//     the library's blocking calls.
//
// When the thread ends, its tasks are cancelled and run to their end first.
#pragma once

#include <netro/Export.h>
#include <netro/Task.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace netro {

/// One thread's loop. See the head of this file.
class NETRO_EXPORT MessageLoop {
 public:
  /// The calling thread's loop. Valid while that thread runs.
  static MessageLoop& ForThisThread();

  MessageLoop(const MessageLoop&) = delete;
  MessageLoop& operator=(const MessageLoop&) = delete;

  /// The descriptor that is readable while PumpMessages has something to do; -1 when the system
  /// could not give one: pump every 10 ms or so then, and ask again. It stays the loop's: watch it,
  /// do not read or close it.
  virtual int LoopFd() const = 0;

  /// Delivers what is queued on entry (notifications, due timers, posted functions, tasks that may
  /// go on) and returns without waiting. May be called from inside an event. In a task it gives way
  /// until that has been done. Where memory runs out it returns early, and the next one goes on; of
  /// what events throw, std::bad_alloc counts as that.
  virtual void PumpMessages() = 0;

  /// Delivers messages until QuitLoop is called, sleeping in between. In a task only the task
  /// sleeps; its end by Cancel or Deadline ends the call too.
  virtual void RunLoop() = 0;

  /// Ends the innermost RunLoop once it is back from the message being delivered. Without a running
  /// loop it does nothing.
  virtual void QuitLoop() = 0;

  /// Queues a function to be run once on the loop's thread, in the order of posting. Any thread may
  /// call it on a loop it was given, while the loop's thread runs.
  virtual void PostTask(std::function<void()> Task) = 0;

  /// Starts a task, which begins with the next pump, never inside this call. The stack has at least
  /// `StackSize` bytes (Task::SmallestStack or more), of which it takes what it uses. Error() of
  /// the result tells whether it was started. What `Work` throws goes out of the pump that ran it.
  virtual Task StartTask(std::function<void()> Work, std::size_t StackSize = Task::UsualStack) = 0;

  /// Waits for a time, as a blocking call: in a task the task sleeps, outside of one messages are
  /// delivered. Returns 0; 9999 when it was cancelled, 10002 when the task's deadline came first,
  /// 10036 at too deep a nesting, 10055.
  virtual std::int32_t Sleep(std::chrono::milliseconds Time) = 0;

  /// Runs a function every `Milliseconds` (values below 1 count as 1) until KillTimer. Returns the
  /// timer's id, never 0 (but see CheckThread). A tick that is missed because the thread was busy
  /// is not made up for.
  virtual std::int32_t SetTimer(std::int32_t Milliseconds, std::function<void()> Callback) = 0;

  /// Stops a timer; may be called from its own function. Unknown ids are ignored.
  virtual void KillTimer(std::int32_t TimerId) = 0;

  /// Sets the function that is run at least every `Interval` while a call waits, in a task or
  /// outside, and the library's own loop turns: in RunLoop and in blocking calls outside of tasks.
  /// An empty function removes it. It may call anything, blocking calls on other objects included.
  /// Intervals below 1 ms count as 1 ms.
  virtual void SetHostPump(std::function<void()> Pump,
                           std::chrono::milliseconds Interval = std::chrono::milliseconds(10)) = 0;

  /// True (the default): while a thread uses this loop - pumps it, or is inside of a call of an
  /// object that was made on the loop's thread, in a task too - calls of these objects and of the
  /// loop on another thread are refused, and touch nothing: what returns a number returns 10180,
  /// HTTPQuery its text, all else false, empty or nothing done (PumpMessages, RunLoop), 0 of
  /// SetTimer; ThreadErr tells. LastErr of the object is left alone, since it belongs to the other
  /// call. False: such calls are undefined behaviour, as they always were. What may come from any
  /// thread by its own word (Kill, StopWaiting, PostTask ...) is never refused, and an object that
  /// is made on one thread and used on another is fine while nobody else uses the loop; what the
  /// loop delivers then runs on the thread that uses it. In a task, calls of what was made on
  /// another thread are refused as well. Set it while nobody uses the loop.
  virtual bool CheckThread() const = 0;
  virtual void CheckThread(bool Value) = 0;

  /// 10180 when the last call that the calling thread has begun outside of all others was refused
  /// so, else 0.
  static std::int32_t ThreadErr();

 protected:
  MessageLoop() = default;
  virtual ~MessageLoop() = default;
};

}  // namespace netro
