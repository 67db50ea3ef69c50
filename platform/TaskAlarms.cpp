#include "platform/TaskAlarms.h"

#include <utility>

namespace netro {

void TaskAlarms::Set(TaskState& task, TimePoint when) noexcept {
  const bool isNew = task.alarmAt == TaskState::kNoAlarm;
  if (when == TimePoint::max() || (!isNew && task.alarm <= when)) return;
  task.alarm = when;
  if (isNew) {
    heap_.push_back(&task);
    task.alarmAt = heap_.size() - 1;
  }
  Rise(task.alarmAt);
}

void TaskAlarms::Remove(TaskState& task) noexcept {
  const std::size_t at = std::exchange(task.alarmAt, TaskState::kNoAlarm);
  if (at == TaskState::kNoAlarm) return;
  TaskState& last = *heap_.back();
  heap_.pop_back();
  if (&last == &task) return;
  Put(at, last);
  Rise(at);
  Sink(last.alarmAt);
}

TaskState* TaskAlarms::TakeDue(TimePoint now) noexcept {
  if (heap_.empty() || heap_.front()->alarm > now) return nullptr;
  TaskState& due = *heap_.front();
  Remove(due);
  return &due;
}

void TaskAlarms::Put(std::size_t at, TaskState& task) noexcept {
  heap_[at] = &task;
  task.alarmAt = at;
}

void TaskAlarms::Rise(std::size_t at) noexcept {
  TaskState& task = *heap_[at];
  while (at > 0 && task.alarm < heap_[(at - 1) / 2]->alarm) {
    Put(at, *heap_[(at - 1) / 2]);
    at = (at - 1) / 2;
  }
  Put(at, task);
}

void TaskAlarms::Sink(std::size_t at) noexcept {
  TaskState& task = *heap_[at];
  for (std::size_t child = 2 * at + 1; child < heap_.size(); child = 2 * at + 1) {
    if (child + 1 < heap_.size() && heap_[child + 1]->alarm < heap_[child]->alarm) ++child;
    if (task.alarm <= heap_[child]->alarm) break;
    Put(at, *heap_[child]);
    at = child;
  }
  Put(at, task);
}

}  // namespace netro
