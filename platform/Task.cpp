#include <netro/Task.h>

#include <algorithm>
#include <new>

#include "platform/ErrorNumbers.h"
#include "platform/TaskState.h"
#include "platform/Wait.h"

namespace netro {

Task Task::Current() {
  Task task;
  if (const TaskState* state = Loop::ForThread()->CurrentTask()) task.state_ = state->self;
  return task;
}

void Task::Cancel() const {
  if (Done()) return;
  state_->cancelled = true;
  state_->wakeups->Push(*state_);
}

void Task::Deadline(std::chrono::milliseconds Limit) const {
  if (Done()) return;
  state_->limit = MillisecondsFromNow(Limit);
  state_->loop.LookAt(*state_);
}

bool Task::Done() const { return state_ == nullptr || state_->over; }

std::int32_t Task::Wait() const try {
  if (Done()) return error_;
  const auto state = state_;  // the handle may go meanwhile
  const auto& loop = Loop::ForThread();
  if (&state->loop != loop.get()) return kErrInvalidArgument;
  if (loop->CurrentTask() == state.get() || loop->IsTooDeep()) return kErrInProgress;
  if (state->end == nullptr) state->end = std::make_shared<CallState>();
  const CallMark mark(loop, state->end);
  return WaitError(WaitUntil(mark, TimePoint::max(), [&] { return state->over.load(); }));
} catch (const std::bad_alloc&) {
  return kErrNoBuffers;
}

}  // namespace netro
