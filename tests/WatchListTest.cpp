// The watcher's bookkeeping: rows, windows, delays, parents, the uplink, flapping, quiet hours, and
// a month of scripted outages in which every alert is accounted for.
#include <random>
#include <sstream>

#include "TestKit.h"
#include "diag/WatchList.h"

namespace netro {
namespace {

WatchTarget Target(const std::string& name, const std::string& parent = {}) {
  WatchTarget target;
  target.name = name;
  target.host = "10.0.0.1";
  target.parent = parent;
  return target;
}

WatchSettings SettingsFor(int hosts, std::int32_t downCycle = 3, std::int32_t upCycle = 2) {
  WatchSettings settings;
  settings.down.count = downCycle;
  settings.up.count = upCycle;
  for (int i = 0; i < hosts; ++i) settings.targets.push_back(Target("host" + std::to_string(i)));
  return settings;
}

ProbeResult Result(bool success) {
  if (success) return {ProbeResult::Succeeded, 7, "Success: 7 ms"};
  return {ProbeResult::Failed, -1, "no answer"};
}

// "-" no change, else the letters of all changes; small where nothing is reported by actions, and
// with an apostrophe where it is no news.
std::string Changes(WatchList& list) {
  std::string seen;
  for (const WatchChange& change : std::exchange(list.Changes(), {})) {
    const char letter = "-DUXFSR"[change.kind];
    const std::size_t place = *list.Find(change.host);
    seen += static_cast<char>(change.toReport ? letter : std::tolower(letter));
    if (!change.toLog && !change.toTell) seen += '\'';
    if (list.Size() > 1) seen += std::to_string(place);
  }
  return seen;
}

// Takes a host out, whether it is due or not, and records a result.
std::string Probe(WatchList& list, std::size_t index, bool success, TimePoint now) {
  list.Record(list.At(index).id, Result(success), 1, now);
  return Changes(list);
}

// One host, probed when it is due: '+' and '-' are successes and failures. For each probe: the
// seconds until the next, with what it changed.
class OneHost {
 public:
  explicit OneHost(const WatchSettings& settings = SettingsFor(1)) { list.Assign(settings, now); }

  std::string Run(const std::string& probes) {
    std::string seen;
    for (const char probe : probes) {
      now = list.NextDue();
      EXPECT_EQ(list.TakeDue(now).size(), 1u);
      const std::string changes = Probe(list, 0, probe == '+', now);
      const auto wait = std::chrono::duration_cast<seconds>(list.NextDue() - now);
      seen += std::to_string(wait.count()) + changes + " ";
    }
    return seen;
  }

  WatchList list;
  TimePoint now;
};

TEST(WatchList, RowsAndWindowsMakeAHostGoDownAndComeUp) {
  const struct {
    const char *probes, *expected;
    WatchedStateEnum state;
    std::int32_t upWindow, downWindow, flapChanges;
  } kCases[] = {
      {"+", "300 ", WatchedUp, 0, 0, 0},
      {"-", "10 ", WatchedUnknown, 0, 0, 0},
      {"----", "10 10 10D 10 ", WatchedDown, 0, 0, 0},
      {"--+--+", "10 10 300 10 10 300 ", WatchedUp, 0, 0, 0},
      {"---+", "10 10 10D 10 ", WatchedDown, 0, 0, 0},
      {"---+-++", "10 10 10D 10 10 10 300U ", WatchedUp, 0, 0, 0},
      {"---++---", "10 10 10D 10 300U 10 10 10D ", WatchedDown, 0, 0, 0},
      // Three of five; what came before the change does not count.
      {"-+-+-", "10 300 10 300 10D ", WatchedDown, 0, 5, 0},
      {"-++-++-", "10 300 300 10 300 300 10 ", WatchedUp, 0, 5, 0},
      {"---+-+", "10 10 10D 10 10 300U ", WatchedUp, 3, 0, 0},
      {"---+--+", "10 10 10D 10 10 10 10 ", WatchedDown, 3, 0, 0},
      // The third change within an hour makes it flap; four quiet quarters settle it.
      {"---++---++", "10 10 10D 10 300U 10 10 10F 10 300 ", WatchedUp, 0, 0, 3},
      {"---++---++++++++++++++",
       "10 10 10D 10 300U 10 10 10F 10 300 300 300 300 300 300 300 300 "
       "300 300 300 300 300S ",
       WatchedUp, 0, 0, 3},
  };
  for (const auto& test : kCases) {
    WatchSettings settings = SettingsFor(1);
    settings.up.window = test.upWindow;
    settings.down.window = test.downWindow;
    settings.flapChanges = test.flapChanges;
    OneHost host(settings);
    EXPECT_EQ(host.Run(test.probes), test.expected) << test.probes;
    EXPECT_EQ(host.list.At(0).state, test.state) << test.probes;
  }
}

TEST(WatchList, NewSettingsKeepWhatIsKnownOfHostsThatStay) {
  OneHost host;
  host.Run("---+");
  const WatchId id = host.list.At(0).id;
  WatchSettings settings = SettingsFor(2);
  settings.targets.insert(settings.targets.begin(), Target("new"));
  settings.targets[2].kindText = "http";  // of the same name, but another probe
  host.list.Assign(settings, host.now);
  EXPECT_EQ(host.list.Find(id), 1u);
  EXPECT_EQ(host.list.At(1).state, WatchedDown);
  EXPECT_EQ(host.list.At(1).successes, 1);
  EXPECT_EQ(host.list.TakeDue(host.now).size(), 2u) << "new ones are due";
  EXPECT_EQ(host.list.TakeDue(host.now + seconds(10)), (std::vector<WatchId>{id}));
  host.list.Assign(SettingsFor(0), host.now);
  host.list.Record(id, Result(true), 1, host.now);
  EXPECT_EQ(host.list.Find(id), std::nullopt) << "a probe of a host that has gone";
}

TEST(WatchList, AShorterDelayCountsAtOnce) {
  WatchSettings settings = SettingsFor(1);
  settings.upDelay = 86400;
  OneHost host(settings);
  host.Run("+");
  settings.upDelay = 300;
  host.list.Assign(settings, host.now);
  EXPECT_EQ(host.list.NextDue(), host.now + seconds(300));
}

TEST(WatchList, ResetMakesEveryHostDueExceptThoseBeingProbed) {
  WatchList list;
  const TimePoint now;
  list.Assign(SettingsFor(3), now);
  const std::vector<WatchId> all = list.TakeDue(now);
  EXPECT_EQ(all.size(), 3u);
  Probe(list, 0, true, now);
  list.Record(all[1], {ProbeResult::Forbidden, -1, "not allowed"}, 1, now);
  EXPECT_TRUE(list.At(1).forbidden);
  EXPECT_EQ(list.At(1).failures, 0);
  list.ResetDue(now);
  EXPECT_EQ(list.TakeDue(now), (std::vector<WatchId>{all[0], all[1]}));
  list.Record(all[2], {ProbeResult::Lacking, -1, {}}, 1, now);
  EXPECT_EQ(list.TakeDue(now), (std::vector<WatchId>{all[2]})) << "was not probed after all";
  list.ReleaseAll();
  EXPECT_EQ(list.TakeDue(now), all);
}

// Hosts 1 and 2 stand behind host 0, host 3 behind host 1. Each word is a host and its outcome, ten
// seconds after the one before, with what it changes.
TEST(WatchList, ParentsAndUplinkAreAskedBeforeAHostIsBlamed) {
  const struct {
    const char* name;
    bool uplink;
    std::string steps;
  } kCases[] = {
      {"the router answers later than the failure: the host is down", false,
       "0+ 1- 1- 1- 0+:D1 1- "},
      {"the router is dead, too: it is down, and all behind it are told with it", false,
       "1- 1- 1- 0- 0- 0-:D0X1 2-:X2 3-:X3 1- 0+ 0+:U0 1+ 1+:U1 2- 2- 2- 0+:D2 3+ 3+:U3 "},
      {"one that was down before stays so", false, "2- 2- 2- 0+:D2 0- 0- 0-:D0 2- 2+ 2+:U2 "},
      {"behind a silent uplink nothing counts", true,
       "0+ 1- 1- 1- 0- 1- 2- 0- 0-:D0 1- 0+ 1- 0+:U0 1- 1- 0+:D1 "},
      {"what failed before the uplink last answered counts on", true, "1- 1- 0+ 0- 0+ 1- 0+:D1 "},
  };
  for (const auto& test : kCases) {
    WatchSettings settings = SettingsFor(4);
    if (test.uplink) settings.uplink = "HOST0";
    for (const int ward : {1, 2}) settings.targets[ward].parent = test.uplink ? "" : "Host0";
    settings.targets[3].parent = "host1";
    WatchList list;
    TimePoint now;
    list.Assign(settings, now);
    std::istringstream steps(test.steps);
    std::string seen;
    for (std::string step; steps >> step;) {
      now += seconds(10);
      const auto host = static_cast<std::size_t>(step[0] - '0');
      const std::string changes = Probe(list, host, step[1] == '+', now);
      seen += step.substr(0, 2) + (changes.empty() ? "" : ":" + changes) + " ";
    }
    EXPECT_EQ(seen, test.steps) << test.name;
  }
}

TEST(WatchList, AHostInDoubtMakesItsGuardDueAndItsFallMakesTheOthersDue) {
  WatchSettings settings = SettingsFor(3, 1, 1);
  settings.targets[1].parent = settings.targets[2].parent = "host0";
  WatchList list;
  TimePoint now;
  list.Assign(settings, now);
  const std::vector<WatchId> all = list.TakeDue(now);
  for (std::size_t i = 0; i < 3; ++i) Probe(list, i, true, now);
  now += seconds(20);
  EXPECT_EQ(Probe(list, 1, false, now), "");
  EXPECT_EQ(list.TakeDue(now), (std::vector<WatchId>{all[0]}));
  EXPECT_EQ(Probe(list, 0, false, now), "D0X1");
  EXPECT_EQ(list.CauseOf(list.At(1)), &list.At(0));
  EXPECT_EQ(list.TakeDue(now), (std::vector<WatchId>{all[2]}));
}

TEST(WatchList, QuietHoursOweWhatIsStillSoAndRemindersRepeat) {
  WatchSettings settings = SettingsFor(3, 1, 1);
  settings.remindAfter = 600;
  WatchList list;
  TimePoint now;
  list.Assign(settings, now);
  const auto tick = [&](bool quiet) {
    list.Tick(quiet, 1, now);
    return Changes(list);
  };
  EXPECT_EQ(tick(false), "");
  EXPECT_EQ(Probe(list, 0, false, now), "D0");
  EXPECT_EQ(tick(true), "");
  EXPECT_EQ(Probe(list, 1, false, now), "d1");
  EXPECT_EQ(Probe(list, 2, false, now), "d2");
  EXPECT_EQ(Probe(list, 0, true, now), "u0");
  EXPECT_EQ(Probe(list, 1, true, now), "u1");
  now += seconds(601);
  EXPECT_EQ(tick(true), "");
  EXPECT_EQ(tick(false), "U'0D'2");
  EXPECT_EQ(tick(false), "");
  now += seconds(600);
  EXPECT_EQ(tick(false), "R2");
  EXPECT_EQ(tick(false), "");
}

constexpr std::int64_t kDay = 86400;
constexpr std::size_t kRouters = 5;  // behind the uplink, which is host 0
constexpr std::size_t kHosts = 60;   // behind the routers, from kRouters + 1 on
constexpr std::size_t kAll = 1 + kRouters + kHosts;

struct Outage {
  std::int64_t from;
  std::int64_t to;
  bool Has(std::int64_t second) const { return from <= second && second < to; }
};

// Each day has one kind of trouble, so that it is known what must be told. Restarts and steps of
// the clock come on all of them, at any moment.
class Month {
 public:
  Month() {
    settings_ = SettingsFor(static_cast<int>(kAll), 5, 5);
    settings_.uplink = "host0";
    settings_.flapChanges = 4;
    for (std::size_t i = kRouters + 1; i < kAll; ++i)
      settings_.targets[i].parent = settings_.targets[RouterOf(i)].name;
    for (std::int64_t day = 0; day < 30; ++day) PlanDay(day);
    list_.Assign(settings_, base_);
  }

  void Run() {
    std::int64_t nextRestart = Below(kDay);
    for (std::int64_t second = 0; second < 30 * kDay; ++second) {
      if (second == nextRestart) {
        Restart(second);
        nextRestart += 1 + Below(kDay);
      }
      list_.Tick(false, DateAt(second), base_ + seconds(second));
      for (const WatchId id : list_.TakeDue(base_ + seconds(second))) {
        const std::size_t i = *list_.Find(id);
        list_.Record(id, Result(Answers(i, second)), DateAt(second), base_ + seconds(second));
        for (const WatchChange& change : std::exchange(list_.Changes(), {}))
          told_[*list_.Find(change.host)][second] = change.kind;
      }
    }
  }

  // Takes the alert of one kind out of the account; it must be there once, within the times.
  void Expect(std::size_t host, WatchedChangeEnum kind, std::int64_t from, std::int64_t to) {
    auto& alerts = told_[host];
    const auto first = alerts.lower_bound(from);
    ASSERT_NE(first, alerts.end()) << "host " << host << " at " << from;
    EXPECT_EQ(first->second, kind) << "host " << host << " at " << from;
    EXPECT_LE(first->first, to) << "host " << host << " at " << from;
    alerts.erase(first);
    ++expected;
  }

  static std::size_t RouterOf(std::size_t host) { return 1 + host % kRouters; }

  std::vector<Outage> outages[kAll];
  int expected = 0;
  std::map<std::size_t, std::map<std::int64_t, WatchedChangeEnum>> told_;

 private:
  void PlanDay(std::int64_t day) {
    const std::int64_t begin = day * kDay + 4000;
    const auto add = [&](std::size_t host, std::int64_t from, std::int64_t length) {
      outages[host].push_back({from, from + length});
    };
    switch (day % 4) {
      case 0:
        for (std::size_t i = kRouters + 1; i < kAll; ++i)
          add(i, begin + Below(40'000), Below(3) == 0 ? 20 : 5000);
        break;
      case 1:
        for (std::size_t i = 1; i <= kRouters; ++i) add(i, begin + Below(60'000), 6000);
        break;
      case 2:
        for (int i = 0; i < 4; ++i) add(0, begin + 15'000 * i + Below(5000), 3000);
        break;
      default:
        for (int i = 0; i < 6; ++i) add(kAll - 1, begin + 900 * i, 450);
    }
  }

  bool IsOut(std::size_t host, std::int64_t second) {
    auto& next = next_[host];
    while (next < outages[host].size() && outages[host][next].to <= second) ++next;
    return next < outages[host].size() && outages[host][next].Has(second);
  }

  bool Answers(std::size_t host, std::int64_t second) {
    const bool isBehind = host > kRouters;
    return !IsOut(0, second) && !IsOut(host, second) &&
           !(isBehind && IsOut(RouterOf(host), second));
  }

  std::int64_t Below(std::int64_t limit) { return static_cast<std::int64_t>(random_()) % limit; }
  Date DateAt(std::int64_t second) const {
    return 46'000 + step_ + static_cast<double>(second) / static_cast<double>(kDay);
  }

  // The other program has a clock that began elsewhere, and the time of day was set meanwhile.
  void Restart(std::int64_t second) {
    const WatchList before = list_;
    base_ += seconds(Below(1'000'000));
    list_ = WatchList();
    list_.Assign(settings_, base_ + seconds(second));
    for (std::size_t i = 0; i < kAll; ++i) {
      list_.Recall(i, before.At(i), WatchList::JudgementOf(before.At(i)), DateAt(second),
                   base_ + seconds(second));
    }
    step_ = static_cast<double>(Below(200) - 100) / 1000;
  }

  WatchSettings settings_;
  WatchList list_;
  TimePoint base_;
  double step_ = 0;
  std::minstd_rand random_{12345};  // NOLINT: the same each time
  std::size_t next_[kAll] = {};
};

TEST(WatchList, InAMonthEveryAlertIsAccountedFor) {
  Month month;
  month.Run();
  constexpr std::int64_t kDown = 300 + 60;  // the next probe, and five of them
  for (std::size_t i = 0; i < kAll; ++i)
    for (const Outage& outage : month.outages[i]) {
      const std::int64_t length = outage.to - outage.from;
      if (length < 100 || length == 450) continue;
      month.Expect(i, WatchedWentDown, outage.from + 40, outage.from + kDown);
      month.Expect(i, WatchedCameUp, outage.to, outage.to + 60);
      if (i == 0 || i > kRouters) continue;
      for (std::size_t ward = kRouters + 1; ward < kAll; ++ward) {
        if (Month::RouterOf(ward) != i) continue;
        month.Expect(ward, WatchedWentUnreachable, outage.from + 40, outage.from + kDown);
        month.Expect(ward, WatchedCameUp, outage.to, outage.to + 120);
      }
    }
  for (std::int64_t day = 3; day < 30; day += 4) {
    const std::int64_t begin = day * kDay + 4000;
    month.Expect(kAll - 1, WatchedWentDown, begin, begin + 400);
    month.Expect(kAll - 1, WatchedCameUp, begin + 450, begin + 900);
    month.Expect(kAll - 1, WatchedWentDown, begin + 900, begin + 1300);
    month.Expect(kAll - 1, WatchedFlaps, begin + 1350, begin + 1800);
    month.Expect(kAll - 1, WatchedSettled, begin + 5 * 900 + 3600, begin + 5 * 900 + 4800);
  }
  for (const auto& [host, alerts] : month.told_) {
    EXPECT_TRUE(alerts.empty()) << "host " << host
                                << " was told of more than there was: " << alerts.begin()->first
                                << " " << alerts.begin()->second;
  }
  EXPECT_GT(month.expected, 1000);
}

}  // namespace
}  // namespace netro
