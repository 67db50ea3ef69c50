#include "platform/Wait.h"

#include <algorithm>

#include "platform/ErrorNumbers.h"
#include "platform/TaskState.h"

namespace netro {

CallMark::CallMark(std::shared_ptr<Loop> loop, std::shared_ptr<CallState> object)
    : loop_(std::move(loop)),
      object_(std::move(object)),
      task_(loop_->CurrentTask()),
      kills_(loop_->Kills()),
      stops_(object_->stops) {}

bool CallMark::Cancelled() const {
  return object_->stops != stops_ || loop_->Kills() != kills_ || !object_->alive ||
         (task_ != nullptr && task_->cancelled);
}

TimePoint CallMark::Limit(TimePoint deadline) const {
  deadline = std::min(deadline, limit_);
  return task_ != nullptr ? std::min(deadline, task_->limit) : deadline;
}

RunningWait::RunningWait(const CallMark& mark, TimePoint deadline,
                         const std::function<bool()>& done)
    : mark_(mark), deadline_(deadline), done_(done) {
  RunningWait*& first = mark_.Object()->waits_;
  next_ = first;
  if (next_ != nullptr) next_->previous_ = this;
  first = this;
}

RunningWait::~RunningWait() {
  (previous_ != nullptr ? previous_->next_ : mark_.Object()->waits_) = next_;
  if (next_ != nullptr) next_->previous_ = previous_;
}

bool RunningWait::IsOver() {
  if (done_()) {
    end_ = WaitEnd::Done;
  } else if (Now() >= Limit()) {
    end_ = WaitEnd::TimedOut;
  } else if (mark_.Cancelled()) {
    end_ = WaitEnd::Cancelled;
  } else {
    return false;
  }
  return true;
}

void CallState::Changed() noexcept {
  for (RunningWait* wait = waits_; wait != nullptr; wait = wait->next_) {
    if (TaskState* task = wait->mark_.Task()) wait->mark_.MessageLoop().LookAt(*task);
  }
}

WaitEnd WaitUntil(const CallMark& mark, TimePoint deadline, const std::function<bool()>& done) {
  RunningWait wait(mark, deadline, done);
  mark.MessageLoop().Wait(wait);
  return wait.End();
}

std::int32_t WaitError(WaitEnd end) {
  switch (end) {
    case WaitEnd::Done:
      return kErrNone;
    case WaitEnd::TimedOut:
      return kErrTimedOut;
    case WaitEnd::Cancelled:
      break;
  }
  return kErrCancelled;
}

}  // namespace netro
