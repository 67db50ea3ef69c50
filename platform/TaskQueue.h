// The tasks of one loop: which may go on, which sleep, and the stacks they run on.
//
// A task that has to wait stands with its wait in the list of what it waits for. Whoever changes
// that has the task looked at (LookAt): it is put into the queue, and the next Run asks its wait,
// on the loop's stack, whether the wait is over. Only then the task is switched to. What nobody
// touches costs nothing.
//
// Tasks never run inside one another: a task that starts, wakes or cancels another one goes on, and
// the other one has its turn later.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/TaskAlarms.h"
#include "platform/TaskState.h"

namespace netro {

class TaskQueue {
 public:
  TaskQueue(Loop& loop, std::shared_ptr<Waker> waker);
  ~TaskQueue();
  TaskQueue(const TaskQueue&) = delete;
  TaskQueue& operator=(const TaskQueue&) = delete;

  /// Returns the error number: 10055 without memory for the task or its stack, 10022 without work,
  /// 9999 when the thread ends.
  std::int32_t Start(std::function<void()> work, std::size_t stackSize,
                     std::shared_ptr<TaskState>& started);

  /// The task that runs; null while the loop's own stack does.
  TaskState* Current() const { return current_; }
  /// True in the child of a fork: what is here runs in the parent alone.
  bool IsForeign() const;
  /// Runs what may go on at this moment, each until it waits. What a task throws comes out of here;
  /// those behind it have their turn with the next Run.
  void Run();
  /// How many are to be looked at with the next Run.
  std::size_t Ready() const { return readyCount_; }
  /// The moment at which a sleeping task must be looked at.
  TimePoint NextAlarm() const { return alarms_.First(); }
  /// Tasks that wait in a blocking call.
  std::size_t Waiting() const { return waiting_; }

  /// In a task: lets everybody else have a turn. Nothing is asked before it goes on.
  void GiveWay();
  /// In a task: sleeps until the wait is over; `isCall` counts it as a waiting call.
  void WaitFor(RunningWait& wait, bool isCall);
  void LookAt(TaskState& task) noexcept;

  const std::shared_ptr<Wakeups>& Calls() const { return wakeups_; }

  /// The thread ends: cancels all tasks and runs them to their end.
  void EndAll();

 private:
  bool GiveStack(TaskState& task);
  void TakeStack(TaskState& task) noexcept;
  void Link(TaskState& task) noexcept;
  void Unlink(TaskState& task) noexcept;
  void MakeReady(TaskState& task) noexcept;
  TaskState* NextReady() noexcept;
  void LookAtAll() noexcept;
  void Resume(TaskState& task);
  void Finish(TaskState& task);

  Loop& loop_;
  const std::shared_ptr<Wakeups> wakeups_;
  const int process_;
  TaskState* current_ = nullptr;
  TaskState* all_ = nullptr;
  std::size_t count_ = 0;
  std::size_t waiting_ = 0;
  bool ending_ = false;
  TaskState* firstReady_ = nullptr;
  TaskState* lastReady_ = nullptr;
  std::size_t readyCount_ = 0;
  TaskAlarms alarms_;
  std::vector<std::unique_ptr<Fiber>> idle_;  // with stacks of the usual size
};

}  // namespace netro
