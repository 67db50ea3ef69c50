// What a Watchpost remembers: the past of each host, and the file that outlives the program.
#include <algorithm>
#include <chrono>
#include <utility>

#include "diag/Watchpost.h"
#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

using namespace std::chrono_literals;

// What a crash can take of the histories; changes are written within a second.
constexpr auto kStateInterval = 5min;
// Writing the state of thousands of hosts takes no more than this part of the time.
constexpr int kMostShare = 20;
constexpr auto kNoMemoryPause = 1s;
constexpr auto kErrorPause = 10s;  // until a disk may have room

WatchHistory::State PastState(WatchedStateEnum state) {
  if (state == WatchedUp) return WatchHistory::State::Up;
  return state == WatchedDown ? WatchHistory::State::Down : WatchHistory::State::Unknown;
}

bool IsOf(const WatchMemory& memory, const WatchTarget& target) {
  return memory.host == target.host && memory.kind == target.kindText;
}

}  // namespace

void Watchpost::Remember(WatchId id, const ProbeResult& result) {
  const bool isProbed =
      result.outcome == ProbeResult::Succeeded || result.outcome == ProbeResult::Failed;
  const auto place = list_.Find(id);
  if (!isProbed || !place) return;
  const WatchList::Host& host = list_.At(*place);
  Remembered& one = histories_[id];
  const TimePoint now = Now();
  const auto observed = std::chrono::floor<std::chrono::seconds>(now - one.last.value_or(now));
  // The part of a second that is left counts the next time.
  one.last = one.last.value_or(now) + observed;
  one.history.Record(WallClock(), PastState(host.state),
                     static_cast<std::int32_t>(std::min<std::int64_t>(observed.count(), 1 << 30)),
                     host.lastMilliSeconds, host.lastFailure);
}

WatchedPast Watchpost::PastAt(std::size_t index) const {
  if (index >= list_.Size()) return {};
  const auto found = histories_.find(list_.At(index).id);
  return (found == histories_.end() ? WatchHistory() : found->second.history).Past(WallClock());
}

WatchMemory Watchpost::MemoryOf(const WatchList::Host& host) const {
  WatchMemory memory;
  memory.name = host.target.name;
  memory.host = host.target.host;
  memory.kind = host.target.kindText;
  memory.state = host.state;
  memory.successes = host.successes;
  memory.failures = host.failures;
  memory.lastMilliSeconds = host.lastMilliSeconds;
  memory.lastProbe = host.lastProbe;
  memory.since = host.since;
  memory.lastText = host.lastText;
  memory.lastFailure = host.lastFailure;
  memory.judgement = WatchList::JudgementOf(host);
  return memory;
}

void Watchpost::ReadState() {
  histories_.clear();
  strangers_.clear();
  stateChanged_ = false;
  stateError_ = 0;
  nextState_ = Now() + kStateInterval;
  earliestState_ = Now();
  if (settings_.stateFile.empty()) return;
  // What an earlier observation of this object has left is not read back from its file.
  const bool isOwn = settings_.stateFile == ownState_;
  const WatchStateReader reader{[this](WatchMemory& memory, WatchHistory& history) {
                                  const std::string name = memory.name;
                                  strangers_.try_emplace(name, std::move(memory),
                                                         std::move(history));
                                },
                                [&](const std::string& key, const std::string& value) {
                                  auto fields = SplitFields(value);
                                  if (fields && !isOwn) reports_.Recall({key, std::move(*fields)});
                                }};
  const std::string problem = ReadWatchState(settings_.stateFile, reader);
  if (!problem.empty()) Note(kStateFailed, "state", WatchFacts(), problem);
  reports_.Tick();
  RecallHosts();
}

// Hosts that have come into the list, and those that have left it.
void Watchpost::RecallHosts() {
  std::erase_if(histories_, [this](const auto& one) { return !list_.Find(one.first); });
  if (strangers_.empty()) return;
  for (std::size_t i = 0; i < list_.Size(); ++i) {
    const WatchList::Host& host = list_.At(i);
    const auto found = strangers_.find(host.target.name);
    if (host.lastProbe != 0 || found == strangers_.end()) continue;
    if (!IsOf(found->second.first, host.target)) continue;
    histories_[host.id].history = std::move(found->second.second);
    Recall(i, found->second.first);
    strangers_.erase(found);
  }
}

void Watchpost::Recall(std::size_t index, const WatchMemory& memory) {
  WatchList::Host known = list_.At(index);
  known.state = memory.state;
  known.successes = memory.successes;
  known.failures = memory.failures;
  known.lastMilliSeconds = memory.lastMilliSeconds;
  known.lastProbe = memory.lastProbe;
  known.since = memory.since;
  known.lastText = memory.lastText;
  known.lastFailure = memory.lastFailure;
  list_.Recall(index, known, memory.judgement, WallClock(), Now());
}

void Watchpost::WriteStateIfDue() {
  const bool isDue = stateChanged_ || reports_.Out() != stateOut_ || Now() >= nextState_;
  if (isDue && Now() >= earliestState_) WriteState();
}

bool Watchpost::WriteState() {
  if (settings_.stateFile.empty()) return false;
  const TimePoint begun = Now();
  std::int32_t error = kErrNoBuffers;
  try {
    error = WriteStateNow();
  } catch (const std::bad_alloc&) {
  }
  stateChanged_ = false;
  nextState_ = Now() + kStateInterval;
  earliestState_ = Now() + kMostShare * (Now() - begun);
  if (error == kErrNoBuffers) {
    stateError_ = error;
    nextState_ = Now() + kNoMemoryPause;
    return NoMemory();
  }
  if (error != 0) nextState_ = Now() + kErrorPause;
  if (error != 0 && std::exchange(stateError_, error) != error) {
    Note(kStateFailed, "state", WatchFacts(),
         "State '" + settings_.stateFile + "': " + SystemErrorText(error) + ".");
  }
  if (error == 0) {
    stateError_ = 0;
    ownState_ = settings_.stateFile;
  }
  return error == 0;
}

std::int32_t Watchpost::WriteStateNow() {
  WatchStateWriter writer;
  const WatchHistory none;
  for (std::size_t i = 0; i < list_.Size(); ++i) {
    const WatchList::Host& host = list_.At(i);
    const auto found = histories_.find(host.id);
    writer.Add(MemoryOf(host), found == histories_.end() ? none : found->second.history);
  }
  const std::vector<WatchWaiting> waiting = reports_.Waiting();
  for (const WatchWaiting& one : waiting) writer.Add(one.kind, JoinFields(one.fields));
  stateHasWaiting_ = !waiting.empty();
  stateOut_ = reports_.Out();
  return writer.Replace(settings_.stateFile);
}

}  // namespace netro
