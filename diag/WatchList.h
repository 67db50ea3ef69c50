// The hosts that a watcher observes: when each is due, what its probes have come to, and what that
// says about it: up, down, behind a host that is down, flapping. Pure: time comes from outside, on
// a clock that nobody sets. Thread: its owner's.
#pragma once

#include <netro/WatchpostCls.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "diag/WatchSettings.h"
#include "platform/Clock.h"

namespace netro {

struct ProbeResult {
  /// Lacking: this program had not what the probe needs, which tells nothing about the host.
  /// Forbidden: the system does not allow it to.
  enum Outcome { Succeeded, Failed, Lacking, Forbidden } outcome = Lacking;
  std::int32_t milliSeconds = -1;
  std::string text;
};

/// A host of the list, for as long as it stays there. Its index may change.
using WatchId = std::uint64_t;

struct WatchChange {
  WatchId host = 0;
  WatchedChangeEnum kind = WatchedWentDown;
  Date since = 0;        // UTC: when the state began that this ends, or reminds of
  bool toTell = true;    // by events
  bool toLog = true;     // this and the next are set to false when they are done
  bool toReport = true;  // by actions; not in quiet hours
  std::size_t actionsDone = 0;
};

class WatchList {
 public:
  struct Host {
    Host(WatchTarget what, WatchId number, TimePoint when)
        : target(std::move(what)), id(number), due(when) {}

    WatchTarget target;
    WatchId id;
    TimePoint due;
    bool probing = false;  // taken out of the schedule
    WatchedStateEnum state = WatchedUnknown;
    bool flapping = false;
    std::int32_t successes = 0;  // in a row
    std::int32_t failures = 0;
    std::string row;  // of the last probes, '+' and '-', since the state changed
    std::string lastText;
    std::string lastFailure;  // text of the last probe that failed
    std::int32_t lastMilliSeconds = -1;
    Date lastProbe = 0;
    Date since = 0;          // when the state began
    bool forbidden = false;  // not probed: the system does not allow it
    bool inDoubt = false;    // would be down, but first its guard is asked

    // What its reports have told: a state, or that it flaps, and when.
    WatchedStateEnum told = WatchedUnknown;
    bool toldFlapping = false;
    TimePoint toldAt;
    Date toldDate = 0;

    std::vector<TimePoint> changes;  // recent ones, at most as many as make it flap
    TimePoint lastSuccess = TimePoint::min();
    TimePoint lastFailed = TimePoint::min();
    std::optional<std::size_t> guard;  // the parent, else the uplink
    bool isGuard = false;
  };

  /// Takes the settings' hosts and rules. Hosts that stay (same name, host and kind) keep what is
  /// known of them; new ones are due at `now`.
  void Assign(const WatchSettings& settings, TimePoint now);

  std::size_t Size() const { return hosts_.size(); }
  const Host& At(std::size_t index) const { return hosts_[index]; }
  std::optional<std::size_t> Find(WatchId id) const;
  /// The host that is down and hides this one; nullptr when there is none.
  const Host* CauseOf(const Host& host) const;

  /// Takes the hosts that are due at `now` out of the schedule, the one that waits longest first.
  /// Each comes back by Record or Release.
  std::vector<WatchId> TakeDue(TimePoint now);
  /// When the next host is due; TimePoint::max() when none is in the schedule.
  TimePoint NextDue() const;
  /// The host was not probed after all; it is due again as before. The same for all.
  void Release(WatchId id);
  void ReleaseAll();
  /// Makes every host of the schedule due.
  void ResetDue(TimePoint now);

  /// Takes in how a probe went that ended at `date` (UTC), and schedules the next.
  void Record(WatchId id, const ProbeResult& result, Date date, TimePoint now);
  /// To be called now and then: `quiet` in hours in which nothing is reported. Brings reminders,
  /// and what is owed when they end.
  void Tick(bool quiet, Date date, TimePoint now);
  /// What has changed, oldest first. Whoever is done with one takes it out.
  std::vector<WatchChange>& Changes() { return changes_; }

  /// What of a host's judgement has no place elsewhere, as one word, and back. Recall is for a new
  /// host whose state, rows, texts and dates have been put back; nothing is reported again.
  static std::string JudgementOf(const Host& host);
  void Recall(std::size_t index, const Host& known, const std::string& judgement, Date date,
              TimePoint now);

 private:
  std::chrono::seconds Delay(const Host& host) const;
  void Schedule(Host& host, TimePoint due);
  void TakeRules(const WatchSettings& settings);
  void LinkGuards(const WatchSettings& settings);
  bool IsSuspended(const Host& host) const;
  void Note(Host& host, char outcome) const;

  void Succeeded(Host& host, TimePoint now);
  void Failed(Host& host, TimePoint now);
  void UplinkLost();
  void Judge(Host& host, TimePoint now);
  void JudgeWards(const Host& guard, TimePoint now);
  void Become(Host& host, WatchedStateEnum state, TimePoint now);
  void LookAtWards(const Host& guard, TimePoint now);
  bool Flaps(Host& host, TimePoint now);
  void Settle(Host& host, TimePoint now);
  void HaveRoom();
  void Emit(Host& host, WatchedChangeEnum kind, Date since, TimePoint now);
  void TellOwed(Host& host, TimePoint now);

  std::vector<Host> hosts_;
  std::unordered_map<WatchId, std::size_t> places_;
  WatchId lastId_ = 0;
  TimePoint nextDue_ = TimePoint::min();  // no host is due before
  std::optional<std::size_t> uplink_;
  std::chrono::seconds upDelay_{0};
  std::chrono::seconds downDelay_{0};
  WatchRule up_;
  WatchRule down_;
  std::size_t flapChanges_ = 0;
  std::chrono::seconds flapWindow_{0};
  std::chrono::seconds remindAfter_{0};
  bool quiet_ = false;
  Date date_ = 0;  // of the call that runs
  std::vector<WatchChange> changes_;
};

}  // namespace netro
