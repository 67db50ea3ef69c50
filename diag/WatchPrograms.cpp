#include "diag/WatchPrograms.h"

#include <netro/MessageLoop.h>

#include <algorithm>
#include <new>
#include <utility>

#include "diag/WatchProbe.h"
#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

using namespace std::chrono_literals;

// From one look at those that run to the next: soon after one has ended, seldom when they take
// long.
constexpr auto kShortestPause = 2ms;
constexpr auto kLongestPause = 200ms;
constexpr auto kNoMemoryPause = 1000ms;

std::string Joined(const std::vector<std::string>& words) {
  std::string joined;
  for (const std::string& word : words) joined += (joined.empty() ? "" : " ") + word;
  return joined;
}

}  // namespace

void WatchPrograms::Add(WatchProgram program) {
  if (waiting_.size() >= kMostWaiting) return TellNotStarted(program, "too many wait already.");
  waiting_.push_back(std::move(program));
}

std::vector<std::vector<std::string>> WatchPrograms::Queued() const {
  std::vector<std::vector<std::string>> all;
  for (const WatchProgram& one : waiting_) {
    const WatchFacts& facts = one.facts;
    std::vector<std::string>& fields = all.emplace_back();
    fields = {one.program, facts.senderHostName, facts.name, facts.host, facts.errorDump};
    fields.insert(fields.end(), one.parameters.begin(), one.parameters.end());
  }
  return all;
}

void WatchPrograms::Recall(std::vector<std::string> fields) {
  constexpr std::size_t kParameters = 5;
  if (fields.size() < kParameters) return;
  WatchProgram program{fields[0], {}, {fields[1], fields[2], fields[3], fields[4]}, false};
  fields.erase(fields.begin(), fields.begin() + kParameters);
  program.parameters = std::move(fields);
  Add(std::move(program));
}

void WatchPrograms::Resume() {
  if (!HasWork() || !task_.Done()) return;
  task_ = MessageLoop::ForThisThread().StartTask([self = shared_from_this()] { self->Work(); });
}

void WatchPrograms::Work() {
  std::chrono::milliseconds pause = kShortestPause;
  std::int32_t cancelled = 0;
  while (HasWork() && cancelled == 0) {
    try {
      const bool ended = Look();
      pause = std::clamp<std::chrono::milliseconds>(pause * 2, kShortestPause, kLongestPause);
      if (ended) pause = kShortestPause;
      if (StartOne()) pause = 0ms;  // the loop goes on in between
    } catch (const std::bad_alloc&) {
      pause = kNoMemoryPause;
    }
    cancelled = MessageLoop::ForThisThread().Sleep(pause);
  }
}

/// True when one was started, or could not be. Only one, since that takes a millisecond.
bool WatchPrograms::StartOne() {
  if (waiting_.empty() || running_.size() >= kMostRunning) return false;
  running_.reserve(kMostRunning);
  Start(waiting_.front());
  waiting_.pop_front();
  ++out_;
  return true;
}

void WatchPrograms::Start(WatchProgram& what) {
  RunningProgram program;
  const std::int32_t error = program.Start(what.program, what.parameters);
  if (IsOwnLack(error)) {
    if (!std::exchange(what.told, true)) {
      TellNotStarted(what, SystemErrorText(error) + ". It will be tried again.");
    }
    throw std::bad_alloc();
  }
  if (error != 0) return TellNotStarted(what, SystemErrorText(error));
  running_.push_back({std::move(what), std::move(program), Now() + limit_, limit_});
}

/// True when one has ended.
bool WatchPrograms::Look() {
  for (Running& one : running_) {
    if (Now() < one.deadline) continue;
    one.deadline = TimePoint::max();  // its end comes with one of the next looks
    if (one.program.HasEnded()) continue;
    one.program.Kill();
    Tell(one.what, "Program '" + one.what.program + "' was ended: it took more than " +
                       std::to_string(one.limit.count()) + " seconds.");
  }
  return std::erase_if(running_, [](Running& one) { return one.program.HasEnded(); }) > 0;
}

void WatchPrograms::TellNotStarted(const WatchProgram& what, const std::string& fault) const {
  Tell(what, "Error while starting '" + what.program + "'. Parameters: '" +
                 Joined(what.parameters) + "'. Error: " + fault);
}

void WatchPrograms::Tell(const WatchProgram& what, const std::string& text) const {
  if (*notes_) (*notes_)(kProgramFailed, "program", what.facts, text);
}

}  // namespace netro
