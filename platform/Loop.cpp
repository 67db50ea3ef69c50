// The message loop: one queue of posted tasks, one of timers, and the notification window.
//
// A pump takes what the system has to tell (Collect), then runs the tasks, the due timers and the
// socket notifications that are queued at that moment. What those add waits for the next pump, so a
// pump always returns. Every step takes its message off the queue before it calls out, because the
// function called may pump again, and nested pumps go on with the rest of the queue.
//
// A blocking call alternates pump and Block. Block sleeps in the same Collect, so a waiting thread
// uses no processor time and wakes for sockets, timers, posted tasks and Wake alike. The descriptor
// of the notification window is readable whenever a pump would find something: the alarm covers the
// timers, Wake covers tasks and notifications that were left in the queue.
#include "platform/Loop.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "platform/PerThread.h"

namespace netro {
namespace {

// "At least every 10 ms", with room for a late wake-up.
constexpr std::chrono::milliseconds kHostPumpInterval(8);

// Each level of nested pumps is an event that waits inside. Deeper than this, reads and accepts are
// held back, which start such events, except those that a blocking call waits for.
constexpr int kDeepestRead = 100;

}  // namespace

MessageLoop& MessageLoop::ForThisThread() { return *Loop::ForThread(); }

const std::shared_ptr<Loop>& Loop::ForThread() {
  return PerThread<Loop>([] { return std::make_shared<Loop>(); });
}

void Loop::ThreadEnds() {
  // Taken out first: what they hold may come back to the loop when it goes.
  std::deque<std::function<void()>> tasks;
  {
    const std::lock_guard lock(tasksMutex_);
    tasks.swap(tasks_);
    hasTasks_ = false;
  }
  const auto timers = std::exchange(timers_, {});
  const auto hostPump = std::exchange(hostPump_, nullptr);
  schedule_.clear();
}

void Loop::PumpMessages() {
  if (!std::exchange(collected_, false)) notifier_.Collect(TimePoint::min());
  {
    const Deeper pump(depth_);
    if (depth_ <= kDeepestRead) notifier_.TakeBackHeld();
    RunTasks();
    RunTimers();
    for (std::size_t left = notifier_.Pending(); left > 0; --left) {
      notifier_.DeliverOne(depth_ > kDeepestRead);
      RunHostPump();
    }
  }
  KeepReadable();
}

void Loop::RunLoop() {
  const bool outer = std::exchange(quit_, false);
  const Deeper run(runDepth_);
  while (!quit_) {
    RunHostPump();
    PumpMessages();
    if (!quit_) Block(TimePoint::max());
  }
  quit_ = outer;
}

void Loop::QuitLoop() { quit_ = runDepth_ > 0; }

void Loop::Block(TimePoint until) {
  if (hasTasks_) return;
  notifier_.Collect(waits_ > 0 ? std::min(until, hostPumpDue_) : until);
  collected_ = true;
}

void Loop::KeepReadable() {
  const bool timerDue = !schedule_.empty() && schedule_.begin()->first <= Now();
  const bool held = depth_ < kDeepestRead && notifier_.HasHeld();
  if (hasTasks_ || notifier_.Pending() > 0 || held || timerDue) Wake();
}

void Loop::PostTask(std::function<void()> task) {
  {
    const std::lock_guard lock(tasksMutex_);
    tasks_.push_back(std::move(task));
    hasTasks_ = true;
  }
  Wake();
}

void Loop::RunTasks() {
  if (!hasTasks_) return;
  std::size_t left = 0;
  {
    const std::lock_guard lock(tasksMutex_);
    left = tasks_.size();
  }
  for (; left > 0; --left) {
    std::function<void()> task;
    {
      const std::lock_guard lock(tasksMutex_);
      if (tasks_.empty()) return;  // a nested pump ran them
      task = std::move(tasks_.front());
      tasks_.pop_front();
      hasTasks_ = !tasks_.empty();
    }
    if (task) task();
  }
}

std::int32_t Loop::SetTimer(std::int32_t milliseconds, std::function<void()> callback) {
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
  const auto found = timers_.find(timerId);
  if (found == timers_.end()) return;
  schedule_.erase({found->second.due, timerId});
  timers_.erase(found);
  UpdateAlarm();
}

void Loop::Schedule(std::int32_t id, TimePoint due) {
  Timer& timer = timers_[id];
  schedule_.erase({timer.due, id});
  timer.due = due;
  schedule_.insert({due, id});
  UpdateAlarm();
}

void Loop::UpdateAlarm() {
  const TimePoint first = schedule_.empty() ? TimePoint::max() : schedule_.begin()->first;
  if (first == alarm_) return;
  alarm_ = first;
  notifier_.SetAlarm(first);
}

void Loop::RunTimers() {
  if (schedule_.empty()) return;
  const TimePoint now = Now();
  std::vector<std::int32_t> due;
  for (const auto& [when, id] : schedule_) {
    if (when > now) break;
    due.push_back(id);
  }
  for (const std::int32_t id : due) RunTimer(id, now);
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

void Loop::SetHostPump(std::function<void()> pump) {
  hostPump_ = pump ? std::make_shared<std::function<void()>>(std::move(pump)) : nullptr;
  hostPumpDue_ = hostPump_ ? TimePoint::min() : TimePoint::max();
}

void Loop::RunHostPump() {
  if (waits_ == 0 || !hostPump_ || Now() < hostPumpDue_) return;
  hostPumpDue_ = Now() + kHostPumpInterval;
  const auto pump = hostPump_;
  (*pump)();
}

}  // namespace netro
