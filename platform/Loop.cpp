// The message loop: one queue of posted functions, one of timers, the notification window, and the
// tasks.
//
// A pump takes what the system has to tell (Collect), then runs the posted functions, the due
// timers, the socket notifications and the tasks that are queued at that moment. What those add
// waits for the next pump, so a pump always returns. Every step takes its message off the queue
// before it calls out, because the function called may pump again, and nested pumps go on with the
// rest of the queue; the same goes for a function that throws.
//
// Who turns the loop (RunLoop, and a blocking call outside of tasks) alternates pump and Block.
// Block sleeps in the same Collect, so a waiting thread uses no processor time and wakes for
// sockets, timers, posted functions, tasks and Wake alike. For a host that turns the loop by
// itself, the descriptor of the notification window is readable whenever a pump would find
// something: the alarm covers the timers and the sleeping tasks, Wake covers what was left queued.
#include "platform/Loop.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/PerThread.h"
#include "platform/Wait.h"

namespace netro {
namespace {

using std::chrono::milliseconds;

// Each level of nested pumps is an event that waits inside. Deeper than this, reads and accepts are
// held back, which start such events, except those that a blocking call waits for.
constexpr int kDeepestRead = 100;

constexpr std::chrono::microseconds kFresh(50);

// Of this thread, once it has had tasks. It needs no destructor, so it can be asked to the very
// end.
thread_local Loop* t_hasTasks = nullptr;

template <class Work>
class AtEnd {
 public:
  explicit AtEnd(Work work) : work_(std::move(work)) {}
  ~AtEnd() { work_(); }
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;

 private:
  Work work_;
};

}  // namespace

MessageLoop& MessageLoop::ForThisThread() { return *Loop::ForThread(); }

const std::shared_ptr<Loop>& Loop::ForThread() {
  return PerThread<Loop>([] { return std::make_shared<Loop>(); });
}

Loop::Loop() : tasks_(*this, notifier_.SharedWaker()) {}

// In the child of a fork the thread has another loop, and what runs is no task of it.
const Loop* Loop::OfRunningTask() {
  const Loop* const loop = t_hasTasks;
  if (loop == nullptr || loop->tasks_.IsForeign()) return nullptr;
  return loop->CurrentTask() != nullptr ? loop : nullptr;
}

void EndTasksOfThread() {
  if (Loop* const loop = std::exchange(t_hasTasks, nullptr)) loop->EndTasks();
}

void Loop::ThreadEnds() {
  // Taken out first: what they hold may come back to the loop when it goes.
  std::deque<std::function<void()>> posted;
  {
    const std::lock_guard lock(postedMutex_);
    posted.swap(posted_);
    hasPosted_ = false;
  }
  const auto timers = std::exchange(timers_, {});
  const auto hostPump = std::exchange(hostPump_, nullptr);
  schedule_.clear();
}

std::int32_t MessageLoop::ThreadErr() { return LoopUse::LastRefusal(); }

void Loop::PumpMessages() {
  const LoopUse::Scope use(use_);
  if (use.Refused()) return;
  if (CurrentTask() != nullptr) return tasks_.GiveWay();
  const AtEnd tell([this] { KeepReadable(); });
  PumpWhatCanBe();
}

// Where memory has run out, what is still to be delivered comes with the next one; tasks may end
// meanwhile.
void Loop::PumpWhatCanBe() {
  const auto attempt = [](auto&& pump) {
    try {
      pump();
    } catch (const std::bad_alloc&) {
    }
  };
  attempt([this] { PumpAside(Ask::Always); });
  attempt([this] { PumpTasks(); });
}

void Loop::Pump(Ask ask) {
  PumpAside(ask);
  PumpTasks();
}

void Loop::PumpTasks() {
  const Deeper pump(depth_);
  // A task may look at the descriptor, as a host does, to learn whether PumpMessages is worth it.
  if (tasks_.Ready() > 0) UpdateAlarm();
  if (tasks_.Ready() > 1 || (tasks_.Ready() == 1 && HasQueued())) Wake();
  tasks_.Run();
}

// A call of a few steps pumps between them, and each time the system would be asked, which costs as
// much as a step. What it has to tell can wait for so short a time; what is queued does not.
void Loop::Collect(Ask ask) {
  if (std::exchange(collected_, false)) return;
  const TimePoint now = Now();
  if (ask == Ask::WhenStale && collectedAt_ + kFresh > now) return;
  notifier_.Collect(TimePoint::min());
  collectedAt_ = now;
}

void Loop::PumpAside(Ask ask) {
  Collect(ask);
  const Deeper pump(depth_);
  if (depth_ <= kDeepestRead) notifier_.TakeBackHeld();
  RunPosted();
  RunTimers();
  for (std::size_t left = notifier_.Pending(); left > 0; --left) {
    notifier_.DeliverOne(depth_ > kDeepestRead);
    RunHostPump();
  }
}

void Loop::RunLoop() {
  const LoopUse::Scope use(use_);
  if (use.Refused()) return;
  Run run;
  run.outer = std::exchange(run_, &run);
  const AtEnd unlink([this, &run] {
    Run** link = &run_;
    while (*link != &run) link = &(*link)->outer;
    *link = run.outer;
  });
  if (CurrentTask() != nullptr) {
    run.state = std::make_shared<CallState>();
    const CallMark mark(ForThread(), run.state);
    const std::function<bool()> quit = [&run] { return run.quit; };
    RunningWait wait(mark, TimePoint::max(), quit);
    return tasks_.WaitFor(wait, false);
  }
  const Deeper turn(turns_);
  const AtEnd tell([this] { KeepReadable(); });
  while (!run.quit) {
    RunHostPump();
    PumpWhatCanBe();
    if (!run.quit) Block(TimePoint::max());
  }
}

void Loop::QuitLoop() {
  const LoopUse::Scope use(use_);
  if (use.Refused() || run_ == nullptr) return;
  run_->quit = true;
  if (run_->state != nullptr) run_->state->Changed();
}

void Loop::Wait(RunningWait& wait) {
  if (CurrentTask() != nullptr) return tasks_.WaitFor(wait, true);
  const Deeper waiting(waits_);
  const Deeper turn(turns_);
  const AtEnd tell([this] {
    if (depth_ == 0) KeepReadable();
  });
  for (;;) {
    RunHostPump();
    Pump(Ask::WhenStale);
    if (wait.IsOver()) return;
    Block(wait.Limit());
  }
}

void Loop::Block(TimePoint until) {
  if (hasPosted_ || tasks_.Ready() > 0 || (depth_ < kDeepestRead && notifier_.HasHeld())) return;
  until = std::min(until, NextDue());
  if (turns_ > turnsAtHostPump_ && AnybodyWaits()) until = std::min(until, hostPumpDue_);
  notifier_.Collect(until);
  collectedAt_ = Now();
  collected_ = true;
}

void Loop::KeepReadable() noexcept {
  UpdateAlarm();
  if (tasks_.Ready() > 0 || HasQueued()) Wake();
}

bool Loop::HasQueued() const {
  const bool held = depth_ < kDeepestRead && notifier_.HasHeld();
  return hasPosted_ || notifier_.Pending() > 0 || held || NextDue() <= Now();
}

void Loop::PostTask(std::function<void()> task) {
  {
    const std::lock_guard lock(postedMutex_);
    posted_.push_back(std::move(task));
    hasPosted_ = true;
  }
  Wake();
}

void Loop::RunPosted() {
  if (!hasPosted_) return;
  std::size_t left = 0;
  {
    const std::lock_guard lock(postedMutex_);
    left = posted_.size();
  }
  for (; left > 0; --left) {
    std::function<void()> task;
    {
      const std::lock_guard lock(postedMutex_);
      if (posted_.empty()) return;  // a nested pump ran them
      task = std::move(posted_.front());
      posted_.pop_front();
      hasPosted_ = !posted_.empty();
    }
    if (task) task();
  }
}

Task Loop::StartTask(std::function<void()> work, std::size_t stackSize) {
  Task task;
  const LoopUse::Scope use(use_);
  if (use.Refused()) {
    task.error_ = kErrOtherThread;
    return task;
  }
  task.error_ =
      tasks_.Start(std::move(work), std::max(stackSize, Task::SmallestStack), task.state_);
  if (task.error_ == 0) {
    t_hasTasks = this;
    WakeUnlessPumping();
  }
  return task;
}

void Loop::LookAt(TaskState& task) noexcept {
  tasks_.LookAt(task);
  WakeUnlessPumping();
}

// The end of a pump sees what was queued in it; a task that runs may look at the descriptor before.
void Loop::WakeUnlessPumping() noexcept {
  if (depth_ == 0 || CurrentTask() != nullptr) Wake();
}

void Loop::KillWaits() {
  ++kills_;
  tasks_.Calls()->PushAll();
}

std::int32_t Loop::Sleep(milliseconds time) try {
  const LoopUse::Scope use(use_);
  if (use.Refused()) return kErrOtherThread;
  if (IsTooDeep()) return kErrInProgress;
  const TimePoint end = MillisecondsFromNow(time);
  const CallMark mark(ForThread(), std::make_shared<CallState>());
  const WaitEnd ended = WaitUntil(mark, end, [] { return false; });
  return ended == WaitEnd::TimedOut && Now() >= end ? 0 : WaitError(ended);
} catch (const std::bad_alloc&) {
  return kErrNoBuffers;
}

std::int32_t Loop::SetTimer(std::int32_t milliseconds, std::function<void()> callback) {
  const LoopUse::Scope use(use_);
  if (use.Refused()) return 0;
  do {
    lastTimer_ = lastTimer_ == std::numeric_limits<std::int32_t>::max() ? 1 : lastTimer_ + 1;
  } while (timers_.contains(lastTimer_));
  Timer& timer = timers_[lastTimer_];
  timer.interval = std::chrono::milliseconds(std::max(1, milliseconds));
  timer.callback = std::make_shared<std::function<void()>>(std::move(callback));
  Schedule(lastTimer_, Now() + timer.interval);
  return lastTimer_;
}

void Loop::KillTimer(std::int32_t timerId) {
  const LoopUse::Scope use(use_);
  if (use.Refused()) return;
  const auto found = timers_.find(timerId);
  if (found == timers_.end()) return;
  schedule_.erase({found->second.due, timerId});
  timers_.erase(found);
  SetAlarm(NextDue());
}

void Loop::Schedule(std::int32_t id, TimePoint due) {
  Timer& timer = timers_[id];
  auto place = schedule_.extract({timer.due, id});  // kept: a timer must not be lost for memory
  timer.due = due;
  if (place.empty()) {
    schedule_.insert({due, id});
  } else {
    place.value() = {due, id};
    schedule_.insert(std::move(place));
  }
  SetAlarm(NextDue());
}

TimePoint Loop::NextDue() const {
  const TimePoint timer = schedule_.empty() ? TimePoint::max() : schedule_.begin()->first;
  return std::min(timer, tasks_.NextAlarm());
}

// For the tasks: an alarm that comes too early costs an empty pump, setting it anew a system call
// for each wait.
void Loop::UpdateAlarm() noexcept {
  const TimePoint first = NextDue();
  if (first < alarm_ || (alarm_ != TimePoint::max() && alarm_ <= Now())) SetAlarm(first);
}

void Loop::SetAlarm(TimePoint when) noexcept {
  if (when == alarm_) return;
  alarm_ = when;
  notifier_.SetAlarm(when);
}

void Loop::RunTimers() {
  if (schedule_.empty()) return;
  const TimePoint now = Now();
  while (!schedule_.empty() && schedule_.begin()->first <= now) {
    RunTimer(schedule_.begin()->second, now);  // which is due later then, or gone
  }
}

void Loop::RunTimer(std::int32_t id, TimePoint now) {
  const auto found = timers_.find(id);
  if (found == timers_.end() || found->second.due > now) return;
  const Timer& timer = found->second;
  const auto callback = timer.callback;  // outlives a KillTimer inside
  const TimePoint next = timer.due + timer.interval;
  Schedule(id, next > now ? next : now + timer.interval);
  if (*callback) (*callback)();
}

void Loop::SetHostPump(std::function<void()> pump, milliseconds interval) {
  const LoopUse::Scope use(use_);
  if (use.Refused()) return;
  hostPump_ = pump ? std::make_shared<std::function<void()>>(std::move(pump)) : nullptr;
  hostPumpDue_ = hostPump_ ? TimePoint::min() : TimePoint::max();
  // "At least every", with room for a late wake-up.
  hostPumpInterval_ = std::max(milliseconds(1), interval - interval / 5);
}

// A pump inside the host pump turns the host's loop no further, unless a call waits in there.
void Loop::RunHostPump() {
  if (!hostPump_ || turns_ <= turnsAtHostPump_ || !AnybodyWaits() || Now() < hostPumpDue_) return;
  hostPumpDue_ = Now() + hostPumpInterval_;
  const auto pump = hostPump_;
  const int outer = std::exchange(turnsAtHostPump_, turns_);
  const AtEnd leave([this, outer] { turnsAtHostPump_ = outer; });
  (*pump)();
}

}  // namespace netro
