// What a Watchpost tells of a change: a line in the log, what the actions say, and events.
#include <algorithm>
#include <utility>

#include "diag/WatchErrors.h"
#include "diag/WatchLog.h"
#include "diag/WatchShown.h"
#include "diag/Watchpost.h"
#include "platform/Clock.h"
#include "support/DateText.h"

namespace netro {
namespace {

// In the order of WatchedChangeEnum.
constexpr const char* kWords[] = {"",         "down",    "up",      "unreachable",
                                  "flapping", "settled", "reminder"};

}  // namespace

// Each part of each change is done once. What memory fails for stays, for the next tick.
void Watchpost::ActOnChanges() {
  std::vector<WatchChange>& changes = list_.Changes();
  std::erase_if(changes, [this](const WatchChange& change) { return !list_.Find(change.host); });
  stateChanged_ |= !changes.empty();
  for (WatchChange& change : changes) {
    const WatchList::Host& host = list_.At(*list_.Find(change.host));
    if (change.toLog) Log(host, change.kind);
    change.toLog = false;
    if (change.toReport) Report(host, change);
    change.toReport = false;
  }
}

// The reports are out before the events, which may stop everything.
void Watchpost::TellChanges() {
  const auto self = shared_from_this();
  for (;;) {
    std::vector<WatchChange>& changes = list_.Changes();
    if (changes.empty() || changes.front().toLog || changes.front().toReport) return;
    const WatchChange change = changes.front();
    const auto place = list_.Find(change.host);
    const auto host = place ? std::optional(list_.At(*place)) : std::nullopt;
    changes.erase(changes.begin());
    if (host && change.toTell) Tell(change.kind, *host, static_cast<std::int32_t>(*place));
  }
}

void Watchpost::Tell(WatchedChangeEnum kind, const WatchList::Host& host, std::int32_t index) {
  if (owner_ == nullptr || owner_->Events() == nullptr) return;
  owner_->Events()->Changed(index, kind);
  if (kind == WatchedStillDown || owner_ == nullptr || owner_->Events() == nullptr) return;
  const bool isUp = kind == WatchedCameUp || (kind == WatchedSettled && host.state == WatchedUp);
  owner_->Events()->Alert(host.target.kindText, index, isUp, host.target.name, host.target.host,
                          host.lastFailure);
}

WatchFacts Watchpost::FactsOf(const WatchList::Host& host) const {
  return {senderHostName_, host.target.name, host.target.host, host.lastFailure};
}

void Watchpost::Log(const WatchList::Host& host, WatchedChangeEnum kind) {
  const WatchFacts facts = FactsOf(host);
  const WatchList::Host* const cause = list_.CauseOf(host);
  std::string text = host.state == WatchedUp ? "Up." : "Down: " + host.lastFailure;
  if (kind == WatchedCameUp) text = FillWatchText(settings_.upLogMsg, settings_, facts);
  if (kind == WatchedWentDown) text = FillWatchText(settings_.downLogMsg, settings_, facts);
  if (kind == WatchedWentUnreachable) {
    text = "Behind " + (cause == nullptr ? "" : cause->target.name) + ": " + host.lastFailure;
  }
  WriteLine(kWords[kind], facts, host.lastMilliSeconds, text);
}

void Watchpost::Report(const WatchList::Host& host, WatchChange& change) {
  constexpr WatchReport::Kind kKinds[] = {WatchReport::Down,        WatchReport::Up,
                                          WatchReport::Unreachable, WatchReport::Flapping,
                                          WatchReport::Settled,     WatchReport::Reminder};
  const WatchList::Host* const cause = list_.CauseOf(host);
  WatchReport report;
  report.kind = kKinds[change.kind - WatchedWentDown];
  report.facts = FactsOf(host);
  report.milliSeconds = host.lastMilliSeconds;
  report.date = WallClock();
  report.since = change.since;
  if (cause != nullptr) report.cause = cause->target.name;
  reports_.Report(report, change.actionsDone);
}

void Watchpost::Note(std::int32_t error, const char* state, const WatchFacts& facts,
                     const std::string& text) {
  Fail(error, text);
  WriteLine(state, facts, -1, text);
}

void Watchpost::WriteLine(const char* state, const WatchFacts& facts, std::int32_t milliSeconds,
                          const std::string& text) {
  if (!logOpen_) return;
  logged_ = true;
  log_.LogEvent(
      WatchLogLine({DateToText(WallClock()), state, facts.name, WithoutUserInfo(facts.host),
                    milliSeconds < 0 ? "" : std::to_string(milliSeconds), text}));
}

void Watchpost::CommitLog() {
  if (logged_) logged_ = !log_.CommitBuffer();
}

void Watchpost::NewLogfile(std::string& Header) {
  Header = WatchLogLine({"time", "state", "name", "host", "milliseconds", "text"});
}

void Watchpost::LogError(std::int32_t /*ErrorNr*/, const std::string& ErrorText) {
  Fail(kLogFailed, "Log '" + log_.LogFileName() + "': " + ErrorText);
}

}  // namespace netro
