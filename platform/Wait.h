// The one wait routine: every blocking call of the library sleeps here. Outside of tasks it pumps
// the loop until the call is over; in a task it puts the task to sleep, and the loop goes on.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "platform/CallState.h"
#include "platform/Clock.h"
#include "platform/Loop.h"

namespace netro {

/// Notes on entry of a blocking call how often it was told to stop, so that a Kill of before is not
/// taken for one of now.
class CallMark {
 public:
  CallMark(std::shared_ptr<Loop> loop, std::shared_ptr<CallState> object);

  /// True when the object was told to stop or is gone, a socket of the thread was killed, or the
  /// task that the call is made in was cancelled.
  bool Cancelled() const;
  /// The call's own limit, beside those of its waits.
  void LimitTo(TimePoint limit) { limit_ = limit; }
  /// The earliest one of `deadline`, this and the limit of the task that the call is made in.
  TimePoint Limit(TimePoint deadline) const;
  bool Expired(TimePoint deadline = TimePoint::max()) const { return Now() >= Limit(deadline); }

  Loop& MessageLoop() const { return *loop_; }
  const std::shared_ptr<CallState>& Object() const { return object_; }
  TaskState* Task() const { return task_; }

 private:
  std::shared_ptr<Loop> loop_;
  std::shared_ptr<CallState> object_;
  TaskState* task_;  // whose stack the call and its mark stand on; null outside of tasks
  TimePoint limit_ = TimePoint::max();
  std::uint32_t kills_;
  std::uint32_t stops_;
};

enum class WaitEnd { Done, TimedOut, Cancelled };

/// Waits until `done()` is true, the deadline or that of the task is reached, or the mark is
/// cancelled, tested in this order after each pump. `done` must not touch objects that an event may
/// have deleted. In a task it is asked when the marked object has Changed.
WaitEnd WaitUntil(const CallMark& mark, TimePoint deadline, const std::function<bool()>& done);

/// The error number of a wait's end: 0, 10002 or 9999.
std::int32_t WaitError(WaitEnd end);

/// One running wait, on its caller's stack.
class RunningWait {
 public:
  RunningWait(const CallMark& mark, TimePoint deadline, const std::function<bool()>& done);
  ~RunningWait();
  RunningWait(const RunningWait&) = delete;
  RunningWait& operator=(const RunningWait&) = delete;

  bool IsOver();
  WaitEnd End() const { return end_; }
  /// True while it must go on, whatever IsOver would say.
  bool IsHeld() const { return mark_.Object()->HasEvents(); }
  TimePoint Limit() const { return mark_.Limit(deadline_); }

 private:
  friend struct CallState;

  const CallMark& mark_;
  const TimePoint deadline_;
  const std::function<bool()>& done_;
  WaitEnd end_ = WaitEnd::Cancelled;
  RunningWait* next_ = nullptr;
  RunningWait* previous_ = nullptr;
};

}  // namespace netro
