#include "platform/TaskQueue.h"

#include <netro/Task.h>

#include <algorithm>
#include <new>
#include <utility>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "platform/Loop.h"
#include "platform/Process.h"
#include "platform/Wait.h"

namespace netro {
namespace {

// Stacks that are kept for the next tasks.
constexpr std::size_t kMostIdle = 256;

void RunWork(TaskState& task) noexcept {
  try {
    const auto work = std::exchange(task.work, nullptr);
    work();
  } catch (...) {
    task.thrown = std::current_exception();
  }
}

}  // namespace

void TaskState::Woken() noexcept { loop.LookAt(*this); }

TaskQueue::TaskQueue(Loop& loop, std::shared_ptr<Waker> waker)
    : loop_(loop), wakeups_(std::make_shared<Wakeups>(std::move(waker))), process_(ProcessId()) {}

// In the child of a fork the tasks are the parent's, and one of them may be what runs: their stacks
// are left as they are.
TaskQueue::~TaskQueue() {
  wakeups_->Close();
  if (!IsForeign()) return;
  for (auto& fiber : idle_) (void)fiber.release();
}

bool TaskQueue::IsForeign() const { return process_ != ProcessId(); }

std::int32_t TaskQueue::Start(std::function<void()> work, std::size_t stackSize,
                              std::shared_ptr<TaskState>& started) try {
  if (!work) return kErrInvalidArgument;
  if (ending_) return kErrCancelled;
  auto task = std::make_shared<TaskState>(loop_, wakeups_);
  task->stackSize = stackSize;
  alarms_.Reserve(count_ + 1);
  idle_.reserve(kMostIdle);
  if (!GiveStack(*task)) return kErrNoBuffers;
  task->work = std::move(work);
  task->fiber->Begin([state = task.get()] { RunWork(*state); });
  task->self = started = task;
  Link(*task);
  MakeReady(*task);
  return 0;
} catch (const std::bad_alloc&) {
  return kErrNoBuffers;
}

bool TaskQueue::GiveStack(TaskState& task) {
  if (task.stackSize == Task::UsualStack && !idle_.empty()) {
    task.fiber = std::move(idle_.back());
    idle_.pop_back();
  } else {
    task.fiber = Fiber::Make(task.stackSize);
  }
  return task.fiber != nullptr;
}

void TaskQueue::TakeStack(TaskState& task) noexcept {
  if (task.stackSize == Task::UsualStack && idle_.size() < kMostIdle) {
    task.fiber->Trim();
    idle_.push_back(std::move(task.fiber));
  }
  task.fiber.reset();
}

void TaskQueue::Link(TaskState& task) noexcept {
  task.next = all_;
  if (all_ != nullptr) all_->previous = &task;
  all_ = &task;
  ++count_;
}

void TaskQueue::Unlink(TaskState& task) noexcept {
  (task.previous != nullptr ? task.previous->next : all_) = task.next;
  if (task.next != nullptr) task.next->previous = task.previous;
  alarms_.Remove(task);
  --count_;
}

void TaskQueue::MakeReady(TaskState& task) noexcept {
  task.isReady = true;
  task.nextReady = nullptr;
  (firstReady_ != nullptr ? lastReady_->nextReady : firstReady_) = &task;
  lastReady_ = &task;
  ++readyCount_;
}

TaskState* TaskQueue::NextReady() noexcept {
  TaskState* const task = firstReady_;
  if (task == nullptr) return nullptr;
  firstReady_ = task->nextReady;
  task->isReady = false;
  --readyCount_;
  return task;
}

void TaskQueue::LookAt(TaskState& task) noexcept {
  if (task.wait != nullptr && !task.isReady) MakeReady(task);
}

void TaskQueue::LookAtAll() noexcept {
  for (TaskState* task = all_; task != nullptr; task = task->next) LookAt(*task);
}

void TaskQueue::Run() {
  if (wakeups_->Deliver()) LookAtAll();
  if (all_ == nullptr || IsForeign()) return;
  if (alarms_.First() != TimePoint::max()) {
    const TimePoint now = Now();
    while (TaskState* due = alarms_.TakeDue(now)) LookAt(*due);
  }
  for (std::size_t left = readyCount_; left > 0; --left) {
    TaskState* const task = NextReady();
    if (task == nullptr) return;
    RunningWait* const wait = task->wait;
    if (wait != nullptr && wait->IsHeld() && !ending_) continue;  // the end of the events tells
    if (wait == nullptr || wait->IsOver()) {
      Resume(*task);
    } else {
      alarms_.Set(*task, wait->Limit());
    }
  }
}

void TaskQueue::Resume(TaskState& task) {
  TaskState* const outer = std::exchange(current_, &task);
  task.fiber->Resume();
  current_ = outer;
  if (task.fiber->IsOver()) Finish(task);
}

void TaskQueue::Finish(TaskState& task) {
  const auto self = std::move(task.self);
  Unlink(task);
  TakeStack(task);
  task.over = true;
  if (task.end != nullptr) task.end->Changed();
  if (task.thrown != nullptr) std::rethrow_exception(std::exchange(task.thrown, nullptr));
}

void TaskQueue::GiveWay() {
  TaskState& task = *current_;
  MakeReady(task);
  task.fiber->Suspend();
}

// The first test comes with the next pump, which delivers what is queued now.
void TaskQueue::WaitFor(RunningWait& wait, bool isCall) {
  TaskState& task = *current_;
  task.wait = &wait;
  waiting_ += isCall ? 1 : 0;
  GiveWay();
  waiting_ -= isCall ? 1 : 0;
  task.wait = nullptr;
}

void TaskQueue::EndAll() {
  if (IsForeign()) return;
  ending_ = true;
  // exit was called in a task, which will never go on: its stack is the thread's now.
  if (TaskState* const last = std::exchange(current_, nullptr)) Unlink(*last);
  for (TaskState* task = all_; task != nullptr; task = task->next) task->cancelled = true;
  LookAtAll();
  while (all_ != nullptr) {
    try {
      Run();
    } catch (...) {  // there is nobody left to take it
    }
  }
  wakeups_->Close();
}

}  // namespace netro
