// A task: a function that runs on the loop's thread, beside others, on a stack of its own. It is
// written with plain blocking calls. Wherever the library would wait inside one, only this task
// sleeps, and the loop goes on with sockets, timers and other tasks. Nothing nests: calls end in
// the order of their answers.
//
//   netro::MessageLoop& loop = netro::MessageLoop::ForThisThread();
//   std::vector<netro::Task> tasks;
//   for (const std::string& url : urls) tasks.push_back(loop.StartTask([url] { Fetch(url); }));
//   for (netro::Task& task : tasks) task.Wait();
//
// Tasks of one thread never run at the same time, and one gives way to others only inside blocking
// calls (PumpMessages, RunLoop, Sleep and Wait are such): data that they share needs no locks. But
// a mutex that is held, or a function's static variable that is being made, over a blocking call
// stops the thread for ever when another task comes to it.
//
// A task's stack is small (UsualStack): large buffers belong on the heap.
#pragma once

#include <netro/Export.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace netro {

struct TaskState;

/// Stands for one task; copies mean the same one, and dropping it changes nothing. All members are
/// for the loop's thread but Cancel and Done.
class NETRO_EXPORT Task {
 public:
  /// Bytes of a task's stack: what StartTask gives, and the least that it gives whoever asks.
  static constexpr std::size_t UsualStack = std::size_t{256} << 10;
  static constexpr std::size_t SmallestStack = std::size_t{64} << 10;

  /// Stands for no task: Done is true.
  Task() = default;

  /// The task that the caller runs in; outside of tasks, and in events, which the loop raises, one
  /// that stands for none.
  static Task Current();
  /// False when it stands for no task.
  explicit operator bool() const { return state_ != nullptr; }
  bool operator==(const Task&) const = default;

  /// 0 when the task was started. Else why not, and its function was not run: 10055 no memory for
  /// its stack, 10022 no function, 9999 the thread is ending.
  std::int32_t Error() const { return error_; }

  /// The blocking call that the task is in returns 9999 within 10 ms, and so does each later one in
  /// it at once. No other task notices. Any thread, signal-safe.
  void Cancel() const;

  /// One limit for all that the task does from now on: the call that it meets, and every later one,
  /// ends as its own time-out ends it (10002; 99 in an SMTP session). Takes the place of an earlier
  /// one; below 0 counts as 0.
  void Deadline(std::chrono::milliseconds Limit) const;

  /// True once its function has returned or thrown. Any thread.
  bool Done() const;

  /// Waits until the task is over, as a blocking call: it sleeps in a task and pumps outside of
  /// one. Returns 0; 9999 when the wait was cancelled, 10002 at the deadline of the task that
  /// waits, 10036 for the caller's own task or at too deep a nesting, 10022 on another thread than
  /// the task's, 10055; Error() when it was never started.
  std::int32_t Wait() const;

 private:
  friend class Loop;

  std::shared_ptr<TaskState> state_;
  std::int32_t error_ = 0;
};

}  // namespace netro
