// One timer serves all deadlines. It is set for the first; answers leave it alone, and when it
// comes too early it is set again: an answer in time costs no system call.
#include "diag/EchoRequests.h"

#include <algorithm>
#include <new>

#include "platform/Loop.h"

namespace netro {

using std::chrono::milliseconds;

EchoRequests::EchoRequests(Ended ended)
    : module_(SocketModule::ForThread()),
      ended_(std::move(ended)),
      echo_(module_->Echoes(),
            [this](std::int32_t id, const EchoOutcome& outcome) { Answered(id, outcome); }) {}

EchoRequests::~EchoRequests() {
  *alive_ = false;
  for (const auto& request : requests_) echo_.Forget(request.first);
  if (timer_ != 0) module_->MessageLoop().KillTimer(timer_);
}

std::int32_t EchoRequests::Send(const EchoRequest& request, milliseconds timeout) {
  while (!kept_.empty() && (kept_.begin()->first <= Now() || echo_.IsFull())) {
    Cancel(kept_.begin()->second);
  }
  std::int32_t id = 0;
  const std::int32_t status = echo_.Send(request, timeout, id);
  if (id == 0) return 0;
  try {
    Add(id, status, timeout);
  } catch (const std::bad_alloc&) {
    Cancel(id);
    echo_.Forget(id);
    throw;
  }
  return id;
}

// What could not be sent is told as soon as the loop is back.
void EchoRequests::Add(std::int32_t id, std::int32_t status, milliseconds timeout) {
  Request& added = requests_[id];
  added.deadline = Now();
  if (status == kIpSuccess) {
    added.deadline += std::max(timeout, milliseconds(0));
  } else {
    added.statusThen = status;
  }
  // The latest as a rule, so that its place is the end.
  deadlines_.insert(deadlines_.end(), {added.deadline, id});
  SetAlarm();
}

void EchoRequests::Cancel(std::int32_t id) {
  if (Remove(id)) echo_.Forget(id);
}

bool EchoRequests::Remove(std::int32_t id) {
  const auto found = requests_.find(id);
  if (found == requests_.end()) return false;
  (found->second.answered ? kept_ : deadlines_).erase({found->second.deadline, id});
  requests_.erase(found);
  return true;
}

void EchoRequests::Answered(std::int32_t id, const EchoOutcome& outcome) {
  const auto found = requests_.find(id);
  if (found == requests_.end()) return;
  const Ended ended = ended_;  // outlives a deletion inside
  const bool kept = tellsDuplicates_ && outcome.status == kIpSuccess;
  if (!kept) {
    Remove(id);
    echo_.Forget(id);
  } else if (!std::exchange(found->second.answered, true)) {
    Deadlines::node_type node = deadlines_.extract({found->second.deadline, id});
    node.empty() ? void(kept_.emplace(found->second.deadline, id))
                 : void(kept_.insert(std::move(node)));
  }
  ended(id, outcome);
}

void EchoRequests::TellDuplicates(bool tell) {
  tellsDuplicates_ = tell;
  echo_.SetWantsDuplicates(tell);
}

void EchoRequests::SetAlarm() {
  if (deadlines_.empty()) return;
  const TimePoint first = deadlines_.begin()->first;
  if (timer_ != 0 && timerDue_ <= first) return;
  Loop& loop = module_->MessageLoop();
  if (timer_ != 0) loop.KillTimer(timer_);
  const auto left = std::chrono::ceil<milliseconds>(first - Now()).count();
  timer_ = loop.SetTimer(static_cast<std::int32_t>(std::max<std::int64_t>(left, 1)),
                         [this] { Expire(); });
  timerDue_ = first;
}

void EchoRequests::Expire() {
  const auto alive = alive_;
  const Ended ended = ended_;
  module_->MessageLoop().KillTimer(std::exchange(timer_, 0));
  const TimePoint now = Now();
  // What has come while the thread was busy is no silence. The loop has it after its timers.
  if (!deadlines_.empty() && deadlines_.begin()->first <= now) echo_.Collect();
  while (*alive && !deadlines_.empty() && deadlines_.begin()->first <= now) {
    const std::int32_t id = deadlines_.begin()->second;
    if (echo_.HasAnswer(id)) {
      deadlines_.erase(deadlines_.begin());
      continue;
    }
    const std::int32_t status = echo_.LacksMemory(id) ? kIpNoResources : requests_[id].statusThen;
    const EchoOutcome outcome{status, {}, {}, 0};
    Cancel(id);
    // The function called may wait for the others.
    SetAlarm();
    ended(id, outcome);
  }
  if (*alive) SetAlarm();
}

}  // namespace netro
