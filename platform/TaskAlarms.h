// When which sleeping task must be looked at: a heap that costs nothing while time-outs are far.
//
// A call waits many times, and each wait has a later deadline than the one before. A task that is
// in the heap already stays where it is then; when its moment comes, it is looked at in vain, and
// set anew. So most waits touch no more than their own task.
#pragma once

#include <algorithm>
#include <vector>

#include "platform/TaskState.h"

namespace netro {

class TaskAlarms {
 public:
  /// Makes room for that many tasks, so that Set needs no memory.
  void Reserve(std::size_t tasks) {
    if (heap_.capacity() < tasks) heap_.reserve(std::max(tasks, 2 * heap_.capacity()));
  }
  /// Has the task looked at not later than `when`.
  void Set(TaskState& task, TimePoint when) noexcept;
  void Remove(TaskState& task) noexcept;
  /// A task whose moment has come, taken out; null when there is none.
  TaskState* TakeDue(TimePoint now) noexcept;
  TimePoint First() const { return heap_.empty() ? TimePoint::max() : heap_.front()->alarm; }

 private:
  void Put(std::size_t at, TaskState& task) noexcept;
  void Rise(std::size_t at) noexcept;
  void Sink(std::size_t at) noexcept;

  std::vector<TaskState*> heap_;
};

}  // namespace netro
