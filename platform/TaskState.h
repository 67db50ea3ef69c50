// One task of a loop: shared by its handles and by the loop, which keeps it while it runs.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>

#include "platform/Clock.h"
#include "platform/Fiber.h"
#include "platform/Wakeups.h"

namespace netro {

struct CallState;
class Loop;
class RunningWait;

struct TaskState final : Wakeable {
  TaskState(Loop& runsOn, std::shared_ptr<Wakeups> calls)
      : loop(runsOn), wakeups(std::move(calls)) {}

  Loop& loop;  // while the task is not over
  const std::shared_ptr<Wakeups> wakeups;
  std::atomic<bool> cancelled{false};  // any thread; all else is the loop's thread's
  TimePoint limit = TimePoint::max();  // Deadline
  std::atomic<bool> over{false};
  std::shared_ptr<CallState> end;  // what waits for the end sleeps in; made on demand

  std::size_t stackSize = 0;
  std::function<void()> work;
  std::unique_ptr<Fiber> fiber;
  std::exception_ptr thrown;
  RunningWait* wait = nullptr;  // what it waits for

  // Links of the loop's lists.
  std::shared_ptr<TaskState> self;  // while it is not over
  TaskState* next = nullptr;        // of all tasks of the loop
  TaskState* previous = nullptr;
  bool isReady = false;
  TaskState* nextReady = nullptr;
  static constexpr std::size_t kNoAlarm = static_cast<std::size_t>(-1);
  std::size_t alarmAt = kNoAlarm;  // position in the heap
  TimePoint alarm;                 // not later than it must be looked at

 private:
  void Woken() noexcept override;
};

}  // namespace netro
