// What probes come to. The rules, beside the rows that make a host go down and come up:
//
// - Each host has a guard: its parent, or the uplink where it has none. Before a host goes down its
//   guard must have answered a later probe than the one that failed; until then the host is in
//   doubt, and the guard is due at once. So a dead router is found before the hosts behind it.
// - A host that fails while its guard is down, or itself unreachable, is unreachable, with its
//   first failure. When the guard comes up, its failures are counted anew.
// - While the uplink is silent nothing of the others counts. Failures that came after its last
//   answer are forgotten.
#include "diag/WatchList.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <tuple>

#include "support/Text.h"

namespace netro {

using std::chrono::seconds;

namespace {

bool IsGone(WatchedStateEnum state) { return state == WatchedDown || state == WatchedUnreachable; }

// A host that was never reported down is up as far as anybody was told.
WatchedStateEnum AsTold(WatchedStateEnum state) { return IsGone(state) ? state : WatchedUp; }

WatchedChangeEnum KindOf(WatchedStateEnum state) {
  return state == WatchedDown          ? WatchedWentDown
         : state == WatchedUnreachable ? WatchedWentUnreachable
                                       : WatchedCameUp;
}

bool IsMet(const WatchRule& rule, std::int32_t inARow, const std::string& row, char outcome) {
  if (rule.window == 0) return inARow >= rule.count;
  const auto window = std::min(row.size(), static_cast<std::size_t>(rule.window));
  const auto first = row.end() - static_cast<std::ptrdiff_t>(window);
  return std::count(first, row.end(), outcome) >= rule.count;
}

}  // namespace

void WatchList::Assign(const WatchSettings& settings, TimePoint now) {
  TakeRules(settings);
  using Key = std::tuple<std::string, std::string, std::string>;
  const auto key = [](const WatchTarget& target) {
    return Key(target.name, target.host, target.kindText);
  };
  std::map<Key, const Host*> known;
  for (const Host& host : hosts_) known[key(host.target)] = &host;
  std::vector<Host> hosts;
  std::unordered_map<WatchId, std::size_t> places;
  for (const WatchTarget& target : settings.targets) {
    const auto found = known.find(key(target));
    hosts.push_back(found != known.end() ? *found->second : Host(target, ++lastId_, now));
    Host& host = hosts.back();
    host.target = target;
    host.row.reserve(static_cast<std::size_t>(std::max(up_.window, down_.window)) + 1);
    host.changes.reserve(flapChanges_);
    // A delay that has become shorter counts at once.
    host.due = std::min(host.due, now + Delay(host));
    places[host.id] = hosts.size() - 1;
  }
  hosts_ = std::move(hosts);
  places_ = std::move(places);
  nextDue_ = TimePoint::min();
  LinkGuards(settings);
}

void WatchList::TakeRules(const WatchSettings& settings) {
  upDelay_ = seconds(settings.upDelay);
  downDelay_ = seconds(settings.downDelay);
  up_ = settings.up;
  down_ = settings.down;
  flapChanges_ = static_cast<std::size_t>(settings.flapChanges);
  flapWindow_ = seconds(settings.flapWindow);
  remindAfter_ = seconds(settings.remindAfter);
}

void WatchList::LinkGuards(const WatchSettings& settings) {
  std::unordered_map<std::string, std::size_t> byName;
  for (std::size_t i = 0; i < hosts_.size(); ++i) byName.emplace(ToLower(hosts_[i].target.name), i);
  const auto find = [&](const std::string& name) {
    const auto found = byName.find(ToLower(name));
    return found == byName.end() ? std::nullopt : std::optional(found->second);
  };
  uplink_ = find(settings.uplink);
  for (Host& host : hosts_) host.isGuard = false;
  for (std::size_t i = 0; i < hosts_.size(); ++i) {
    Host& host = hosts_[i];
    host.guard = find(host.target.parent);
    if (!host.guard && i != uplink_) host.guard = uplink_;
    if (host.guard) hosts_[*host.guard].isGuard = true;
    host.inDoubt = false;
  }
}

std::optional<std::size_t> WatchList::Find(WatchId id) const {
  const auto found = places_.find(id);
  return found == places_.end() ? std::nullopt : std::optional(found->second);
}

const WatchList::Host* WatchList::CauseOf(const Host& host) const {
  const Host* cause = nullptr;
  const Host* at = &host;
  for (std::size_t steps = 0; at->guard && steps < hosts_.size(); ++steps) {
    at = &hosts_[*at->guard];
    if (!IsGone(at->state)) break;
    cause = at;
    if (at->state == WatchedDown) break;
  }
  return cause;
}

// --- the schedule

seconds WatchList::Delay(const Host& host) const {
  return host.failures > 0 || IsGone(host.state) ? downDelay_ : upDelay_;
}

void WatchList::Schedule(Host& host, TimePoint due) {
  host.due = due;
  nextDue_ = std::min(nextDue_, due);
}

std::vector<WatchId> WatchList::TakeDue(TimePoint now) {
  std::vector<WatchId> taken;
  if (now < nextDue_) return taken;
  std::vector<std::pair<TimePoint, std::size_t>> due;
  for (std::size_t i = 0; i < hosts_.size(); ++i) {
    if (!hosts_[i].probing && hosts_[i].due <= now) due.emplace_back(hosts_[i].due, i);
  }
  std::ranges::sort(due);
  taken.reserve(due.size());
  for (const auto& [when, index] : due) {
    hosts_[index].probing = true;
    taken.push_back(hosts_[index].id);
  }
  nextDue_ = NextDue();
  return taken;
}

TimePoint WatchList::NextDue() const {
  TimePoint next = TimePoint::max();
  for (const Host& host : hosts_) {
    if (!host.probing) next = std::min(next, host.due);
  }
  return next;
}

void WatchList::Release(WatchId id) {
  const auto place = Find(id);
  if (!place) return;
  Host& host = hosts_[*place];
  host.probing = false;
  Schedule(host, host.due);
}

void WatchList::ReleaseAll() {
  for (Host& host : hosts_) host.probing = false;
  nextDue_ = TimePoint::min();
}

void WatchList::ResetDue(TimePoint now) {
  for (Host& host : hosts_) {
    if (!host.probing) Schedule(host, now);
  }
}

// --- judgement

bool WatchList::IsSuspended(const Host& host) const {
  if (!uplink_) return false;
  const Host& uplink = hosts_[*uplink_];
  return uplink.failures > 0 && &uplink != &host;
}

void WatchList::Record(WatchId id, const ProbeResult& result, Date date, TimePoint now) {
  const auto place = Find(id);
  if (!place) return;
  Release(id);  // due again as before, should memory fail below
  if (result.outcome == ProbeResult::Lacking) return;
  HaveRoom();
  date_ = date;
  Host& host = hosts_[*place];
  host.lastProbe = date;
  host.lastText = result.text;
  const bool succeeded = result.outcome == ProbeResult::Succeeded;
  host.lastMilliSeconds = succeeded ? result.milliSeconds : -1;
  host.forbidden = result.outcome == ProbeResult::Forbidden;
  if (host.forbidden || IsSuspended(host)) {
    return Schedule(host, now + (succeeded ? Delay(host) : downDelay_));
  }
  if (!succeeded) host.lastFailure = result.text;
  succeeded ? Succeeded(host, now) : Failed(host, now);
  Settle(host, now);
  Schedule(host, now + Delay(host));
}

void WatchList::Note(Host& host, char outcome) const {
  const auto window = static_cast<std::size_t>(std::max(up_.window, down_.window));
  host.row += outcome;
  if (host.row.size() > window) host.row.erase(0, host.row.size() - window);
}

void WatchList::Succeeded(Host& host, TimePoint now) {
  host.failures = 0;
  ++host.successes;
  host.lastSuccess = now;
  host.inDoubt = false;
  Note(host, '+');
  if (!IsGone(host.state)) {
    if (host.state == WatchedUnknown) host.since = date_;
    host.state = WatchedUp;
  } else if (IsMet(up_, host.successes, host.row, '+')) {
    Become(host, WatchedUp, now);
  }
  if (host.isGuard) JudgeWards(host, now);
}

void WatchList::Failed(Host& host, TimePoint now) {
  host.successes = 0;
  ++host.failures;
  host.lastFailed = now;
  Note(host, '-');
  if (host.failures == 1 && uplink_ && &host == &hosts_[*uplink_]) UplinkLost();
  if (host.state != WatchedDown) Judge(host, now);
}

void WatchList::UplinkLost() {
  const Host& uplink = hosts_[*uplink_];
  for (Host& host : hosts_) {
    if (&host == &uplink || IsGone(host.state) || host.lastFailed <= uplink.lastSuccess) continue;
    host.failures = 0;
    host.row.clear();
    host.inDoubt = false;
  }
}

void WatchList::Judge(Host& host, TimePoint now) {
  const bool isMet = IsMet(down_, host.failures, host.row, '-');
  Host* const guard = host.guard ? &hosts_[*host.guard] : nullptr;
  host.inDoubt = false;
  if (guard != nullptr && IsGone(guard->state)) {
    if (host.guard == uplink_) return;
    if (host.state != WatchedUnreachable) Become(host, WatchedUnreachable, now);
    return;
  }
  if (!isMet) return;
  if (guard != nullptr && !guard->forbidden && guard->lastSuccess < host.lastFailed) {
    host.inDoubt = true;
    if (!guard->probing) Schedule(*guard, std::min(guard->due, now));
    return;
  }
  Become(host, WatchedDown, now);
}

// Those that have waited for this host's answer.
void WatchList::JudgeWards(const Host& guard, TimePoint now) {
  for (Host& host : hosts_) {
    if (host.inDoubt && host.guard && &hosts_[*host.guard] == &guard) Judge(host, now);
  }
}

void WatchList::Become(Host& host, WatchedStateEnum state, TimePoint now) {
  const WatchedStateEnum before = std::exchange(host.state, state);
  const Date since = std::exchange(host.since, date_);
  host.row.clear();
  const bool byItself = state != WatchedUnreachable && before != WatchedUnreachable;
  if (host.flapping) {
    if (byItself) Flaps(host, now);
  } else if (byItself && Flaps(host, now)) {
    host.flapping = true;
    Emit(host, WatchedFlaps, since, now);
  } else {
    Emit(host, KindOf(state), since, now);
  }
  if (host.isGuard) LookAtWards(host, now);
}

// Hosts behind one that is gone, or is back, are asked at once, so that one report tells of all.
void WatchList::LookAtWards(const Host& guard, TimePoint now) {
  const std::size_t place = static_cast<std::size_t>(&guard - hosts_.data());
  if (place == uplink_) return;
  for (Host& host : hosts_) {
    if (host.guard != place) continue;
    if (host.inDoubt) {
      Judge(host, now);
      continue;
    }
    if (IsGone(guard.state) == IsGone(host.state)) continue;
    if (host.state == WatchedUnreachable) {
      host.failures = 0;
      host.row.clear();
    }
    if (!host.probing) Schedule(host, now);
  }
}

bool WatchList::Flaps(Host& host, TimePoint now) {
  if (flapChanges_ == 0) return false;
  std::erase_if(host.changes, [&](TimePoint change) { return change + flapWindow_ <= now; });
  if (host.changes.size() == flapChanges_) host.changes.erase(host.changes.begin());
  host.changes.push_back(now);
  return host.changes.size() == flapChanges_;
}

void WatchList::Settle(Host& host, TimePoint now) {
  const bool isQuiet = host.changes.empty() || host.changes.back() + flapWindow_ <= now;
  if (!host.flapping || !isQuiet) return;
  host.flapping = false;
  Emit(host, WatchedSettled, host.since, now);
}

// --- what is told

// Once a probe has begun to count, memory must not fail: a host whose state has changed would never
// be told of.
void WatchList::HaveRoom() { changes_.reserve(changes_.size() + 2 * hosts_.size() + 1); }

void WatchList::Emit(Host& host, WatchedChangeEnum kind, Date since, TimePoint now) {
  changes_.push_back({host.id, kind, since, true, true, !quiet_});
  if (quiet_) return;
  host.told = AsTold(host.state);
  host.toldFlapping = host.flapping;
  host.toldAt = now;
  host.toldDate = date_;
}

void WatchList::TellOwed(Host& host, TimePoint now) {
  const bool isTold = host.flapping || AsTold(host.told) == AsTold(host.state);
  if (isTold && host.toldFlapping == host.flapping) return;
  const WatchedChangeEnum kind = host.flapping       ? WatchedFlaps
                                 : host.toldFlapping ? WatchedSettled
                                                     : KindOf(host.state);
  Emit(host, kind, host.since, now);
  changes_.back().toTell = changes_.back().toLog = false;
}

void WatchList::Tick(bool quiet, Date date, TimePoint now) {
  date_ = date;
  quiet_ = quiet;
  if (quiet_ || !changes_.empty()) return;
  HaveRoom();
  for (Host& host : hosts_) {
    TellOwed(host, now);
    const bool isDown = host.state == WatchedDown && host.told == WatchedDown && !host.flapping;
    if (!isDown || remindAfter_ == seconds(0) || IsSuspended(host)) continue;
    if (now >= host.toldAt + remindAfter_) Emit(host, WatchedStillDown, host.since, now);
  }
}

// --- a restart

namespace {

constexpr char kFlaps = 'f';
constexpr char kToldFlapping = 'F';
constexpr double kSecondsOfDay = 86'400;

// A clock that was set back must not make a moment of the past one of the future.
TimePoint Ago(Date then, Date date, TimePoint now) {
  const double passed = std::clamp((date - then) * kSecondsOfDay, 0.0, 400 * kSecondsOfDay);
  return now - seconds(static_cast<std::int64_t>(passed));
}

}  // namespace

// What was told, flags, the row, and when it was told: "2F+-+@46348.5".
std::string WatchList::JudgementOf(const Host& host) {
  std::string word(1, static_cast<char>('0' + host.told));
  if (host.flapping) word += kFlaps;
  if (host.toldFlapping) word += kToldFlapping;
  return word + host.row + "@" + std::to_string(host.toldDate);
}

void WatchList::Recall(std::size_t index, const Host& known, const std::string& judgement,
                       Date date, TimePoint now) {
  Host& host = hosts_[index];
  host.state = known.state;
  host.successes = known.successes;
  host.failures = known.failures;
  host.lastText = known.lastText;
  host.lastFailure = known.lastFailure;
  host.lastMilliSeconds = known.lastMilliSeconds;
  host.lastProbe = known.lastProbe;
  host.since = known.since;
  const std::size_t at = judgement.find('@');
  if (judgement.empty() || at == std::string::npos) return;
  const int state = judgement[0] - '0';
  if (state >= WatchedUnknown && state <= WatchedUnreachable) {
    host.told = static_cast<WatchedStateEnum>(state);
  }
  for (const char c : judgement.substr(1, at - 1)) {
    if (c == '+' || c == '-') Note(host, c);
    host.flapping |= c == kFlaps;
    host.toldFlapping |= c == kToldFlapping;
  }
  const double told = std::strtod(judgement.c_str() + at + 1, nullptr);
  host.toldDate = std::isfinite(told) ? told : 0;
  host.toldAt = Ago(host.toldDate, date, now);
  if (host.flapping) host.changes.push_back(Ago(host.since, date, now));
}

}  // namespace netro
