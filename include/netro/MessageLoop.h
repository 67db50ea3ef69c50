// The message loop that keeps a program alive while the library waits.
//
// Every thread that uses the library has one loop, made on first use and destroyed when the thread
// ends and the last object that was created on it is gone. Socket notifications, timers and posted
// tasks are delivered on that thread only, from inside PumpMessages, RunLoop or a blocking call.
//
// A host with a loop of its own chooses one of two ways, or both:
//   - watch LoopFd() for readability and call PumpMessages() when it is readable;
//   - give SetHostPump a function that turns the host's loop once, so that it stays alive during
//     the library's blocking calls.
#pragma once

#include <netro/Export.h>

#include <cstdint>
#include <functional>

namespace netro {

class NETRO_EXPORT MessageLoop {
 public:
  /// The calling thread's loop. Valid while that thread runs.
  static MessageLoop& ForThisThread();

  MessageLoop(const MessageLoop&) = delete;
  MessageLoop& operator=(const MessageLoop&) = delete;

  /// The descriptor that is readable while PumpMessages has something to do; -1 when the system
  /// could not give one. It stays the loop's: watch it, do not read or close it.
  virtual int LoopFd() const = 0;

  /// Delivers what is queued on entry (notifications, due timers, posted tasks) and returns without
  /// waiting. May be called from inside an event.
  virtual void PumpMessages() = 0;

  /// Delivers messages until QuitLoop is called, sleeping in between.
  virtual void RunLoop() = 0;

  /// Ends the innermost RunLoop once it is back from the message being delivered. Without a running
  /// loop it does nothing.
  virtual void QuitLoop() = 0;

  /// Queues a function to be run once on the loop's thread, in the order of posting. Any thread may
  /// call it on a loop it was given, while the loop's thread runs.
  virtual void PostTask(std::function<void()> Task) = 0;

  /// Runs a function every `Milliseconds` (values below 1 count as 1) until KillTimer. Returns the
  /// timer's id, never 0. A tick that is missed because the thread was busy is not made up for.
  virtual std::int32_t SetTimer(std::int32_t Milliseconds, std::function<void()> Callback) = 0;

  /// Stops a timer; may be called from its own function. Unknown ids are ignored.
  virtual void KillTimer(std::int32_t TimerId) = 0;

  /// Sets the function that blocking calls on this thread run at least every 10 ms while they wait;
  /// an empty function removes it. It may call anything, blocking calls on other objects included.
  virtual void SetHostPump(std::function<void()> Pump) = 0;

 protected:
  MessageLoop() = default;
  virtual ~MessageLoop() = default;
};

}  // namespace netro
