// The rounds of a Watchpost. A round is what one tick, or ObserveNow, has begun. It ends when all
// of its probes have; rounds run side by side, and none waits for another.
#include <algorithm>
#include <new>
#include <utility>

#include "diag/PingWave.h"
#include "diag/Watchpost.h"
#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "platform/Sound.h"

namespace netro {
namespace {

// Ticks are a second apart, and a probe ends a little after its own: the nearest tick is the one
// that a delay means.
constexpr std::chrono::milliseconds kHalfTick(500);

}  // namespace

// What memory fails for is done by a later tick: hosts that were taken stay due.
template <class Work>
void Watchpost::Guarded(Work work) {
  try {
    work();
  } catch (const std::bad_alloc&) {
    lastErr_ = kErrNoBuffers;
    lastErrMsg_.clear();
  }
}

void Watchpost::Tick() {
  const auto self = shared_from_this();
  Guarded([this] {
    reports_.Tick();
    probes_.Resume();
    list_.Tick(IsQuiet(), WallClock(), Now());
  });
  Guarded([this] { ActOnChanges(); });
  Guarded([this] { TellChanges(); });
  Guarded([this] { EndRounds(); });
  if (status_ == WatchpostStarted) Guarded([this] { BeginRound(); });
  if (status_ == WatchpostStarted) Guarded([this] { WriteStateIfDue(); });
}

void Watchpost::BeginRound() {
  const std::vector<WatchId> due = list_.TakeDue(Now() + kHalfTick);
  if (due.empty()) return CommitLog();
  const Round round = ++lastRound_;
  std::size_t begun = 0;
  Guarded([&] {
    std::size_t& left = rounds_[round];
    for (; begun < due.size(); ++begun, ++left) BeginProbe(due[begun], round);
  });
  for (std::size_t i = begun; i < due.size(); ++i) list_.Release(due[i]);
  if (begun == 0) rounds_.erase(round);
  if (settings_.playSonarSound && HasEcho(due)) PlayWave({kPingWave.data(), kPingWave.size()});
}

bool Watchpost::HasEcho(const std::vector<WatchId>& due) const {
  return std::ranges::any_of(due, [this](WatchId id) {
    const auto place = list_.Find(id);
    return place && list_.At(*place).target.kind == WatchKind::Ping;
  });
}

void Watchpost::BeginProbe(WatchId host, Round round) {
  const WatchProbes::Number number = probes_.Begin(list_.At(*list_.Find(host)).target);
  try {
    running_[number] = {host, round};
  } catch (...) {
    probes_.Cancel(number);
    throw;
  }
}

void Watchpost::GiveUpRounds() {
  probes_.CancelAll();
  running_.clear();
  rounds_.clear();
  list_.ReleaseAll();
}

void Watchpost::ForgetRemoved() {
  for (auto it = running_.begin(); it != running_.end();) {
    const auto [number, running] = *it;
    if (list_.Find(running.host)) {
      ++it;
      continue;
    }
    it = running_.erase(it);
    --rounds_[running.round];
    probes_.Cancel(number);
  }
}

// A round whose end could not be told, because an event threw, is told by the next tick.
void Watchpost::Ended(WatchProbes::Number number, const ProbeResult& result) {
  const auto self = shared_from_this();
  const auto found = running_.find(number);
  if (found == running_.end()) return;
  const Running probe = found->second;
  running_.erase(found);
  --rounds_[probe.round];
  bool recorded = false;
  Guarded([&] {
    if (result.outcome == ProbeResult::Lacking) NoMemory();
    list_.Record(probe.host, result, WallClock(), Now());
    recorded = result.outcome != ProbeResult::Lacking;
    Remember(probe.host, result);
  });
  Guarded([this] { ActOnChanges(); });
  if (recorded) Guarded([&] { TellProbed(probe.host); });
  Guarded([this] { TellChanges(); });
  Guarded([this] { EndRounds(); });
}

void Watchpost::EndRounds() {
  for (;;) {
    const auto ended =
        std::ranges::find_if(rounds_, [](const auto& round) { return round.second == 0; });
    if (ended == rounds_.end()) return;
    rounds_.erase(ended);
    CommitLog();
    if (owner_ != nullptr && owner_->Events() != nullptr) owner_->Events()->RoundEnded();
  }
}

void Watchpost::TellProbed(WatchId host) {
  const auto place = list_.Find(host);
  if (!place || owner_ == nullptr || owner_->Events() == nullptr) return;
  owner_->Events()->Probed(static_cast<std::int32_t>(*place));
}

}  // namespace netro
