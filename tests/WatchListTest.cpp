// The watcher's bookkeeping: rows, delays, and a month of scripted outages.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "diag/WatchList.h"

namespace netro {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

WatchSettings SettingsFor(int hosts, std::int32_t downCycle = 3, std::int32_t upCycle = 2) {
  WatchSettings settings;
  settings.downCycle = downCycle;
  settings.upCycle = upCycle;
  for (int i = 0; i < hosts; ++i) {
    settings.targets.push_back({"host" + std::to_string(i), "10.0.0.1", false});
  }
  return settings;
}

ProbeResult Result(bool success) {
  return success ? ProbeResult{true, 7, "Success: 7 ms"} : ProbeResult{false, -1, "no answer"};
}

// One host, probed when it is due: '+' and '-' are successes and failures.
class OneHost {
 public:
  OneHost() { list.Assign(SettingsFor(1), now); }

  // For each probe: the seconds until the next, with a 'D' or 'U' when it changed the state.
  std::string Run(const std::string& probes) {
    std::string seen;
    for (const char probe : probes) {
      now = list.NextDue();
      EXPECT_EQ(list.TakeDue(now).size(), 1u);
      const WatchChange change = list.Record(0, Result(probe == '+'), 1, now);
      const auto wait = std::chrono::duration_cast<seconds>(list.NextDue() - now);
      seen += std::to_string(wait.count());
      seen += change == WatchChange::Down ? "D " : change == WatchChange::Up ? "U " : " ";
    }
    return seen;
  }

  WatchList list;
  TimePoint now;
};

TEST(WatchList, RowsMakeAHostGoDownAndComeUp) {
  const struct {
    const char* probes;
    const char* expected;
    WatchedStateEnum state;
  } kCases[] = {
      {"+", "300 ", WatchedUp},
      {"-", "10 ", WatchedUnknown},
      {"---", "10 10 10D ", WatchedDown},
      {"----", "10 10 10D 10 ", WatchedDown},
      {"--+--+", "10 10 300 10 10 300 ", WatchedUp},
      {"---+", "10 10 10D 10 ", WatchedDown},
      {"---++", "10 10 10D 10 300U ", WatchedUp},
      {"---+-++", "10 10 10D 10 10 10 300U ", WatchedUp},
      {"---++---", "10 10 10D 10 300U 10 10 10D ", WatchedDown},
  };
  for (const auto& test : kCases) {
    OneHost host;
    EXPECT_EQ(host.Run(test.probes), test.expected) << test.probes;
    EXPECT_EQ(host.list.At(0).state, test.state) << test.probes;
  }
}

TEST(WatchList, NewSettingsKeepWhatIsKnownOfHostsThatStay) {
  OneHost host;
  host.Run("---+");
  WatchSettings settings = SettingsFor(2);
  settings.targets.insert(settings.targets.begin(), WatchTarget{"new", "10.0.0.2", false});
  settings.targets[2].http = true;  // of the same name, but another probe
  host.list.Assign(settings, host.now);
  EXPECT_EQ(host.list.At(1).state, WatchedDown);
  EXPECT_EQ(host.list.At(1).successes, 1);
  EXPECT_EQ(host.list.TakeDue(host.now), (std::vector<std::size_t>{0, 2})) << "new ones are due";
  EXPECT_EQ(host.list.TakeDue(host.now + seconds(10)), (std::vector<std::size_t>{1}));
}

TEST(WatchList, AShorterDelayCountsAtOnce) {
  WatchSettings settings = SettingsFor(1);
  settings.upDelay = 86400;
  WatchList list;
  const TimePoint now;
  list.Assign(settings, now);
  list.TakeDue(now);
  list.Record(0, Result(true), 1, now);
  settings.upDelay = 300;
  list.Assign(settings, now);
  EXPECT_EQ(list.NextDue(), now + seconds(300));
}

TEST(WatchList, ResetMakesEveryHostDueExceptThoseBeingProbed) {
  WatchList list;
  const TimePoint now;
  list.Assign(SettingsFor(3), now);
  EXPECT_EQ(list.TakeDue(now).size(), 3u);
  list.Record(0, Result(true), 1, now);
  list.Record(1, Result(true), 1, now);
  list.ResetDue(now);
  EXPECT_EQ(list.TakeDue(now), (std::vector<std::size_t>{0, 1}));
  list.Release(2);
  EXPECT_EQ(list.TakeDue(now), (std::vector<std::size_t>{2})) << "was not probed after all";
  list.ReleaseAll();
  EXPECT_EQ(list.TakeDue(now), (std::vector<std::size_t>{0, 1, 2}));
}

// An outage of a host: from and to, in seconds since the start.
struct Outage {
  std::int64_t from;
  std::int64_t to;
};

// Different for each host, some too short to be noticed.
std::vector<Outage> ScriptedOutages(int host) {
  std::vector<Outage> outages;
  std::uint32_t random = 12345u + static_cast<std::uint32_t>(host);
  for (std::int64_t at = 1000;;) {
    random = random * 1664525u + 1013904223u;
    at += 3600 + random % 200'000;
    const std::int64_t length = random >> 8 & 1 ? 5000 : 20;
    if (at + length + 5000 > 30 * 86400) return outages;
    outages.push_back({at, at + length});
    at += length;
  }
}

TEST(WatchList, AMonthOfOutagesIsToldOnceEachWithinItsCycle) {
  constexpr int kHosts = 200;
  constexpr std::int64_t kMonth = 30 * 86400;
  const WatchSettings settings = SettingsFor(kHosts, 5, 5);
  const TimePoint start;
  WatchList list;
  list.Assign(settings, start);
  std::vector<std::vector<Outage>> outages;
  for (int i = 0; i < kHosts; ++i) outages.push_back(ScriptedOutages(i));
  std::map<std::size_t, std::vector<std::int64_t>> alerts;
  std::vector<std::size_t> next(kHosts);  // outage of each host that is not over

  for (std::int64_t second = 0; second < kMonth; ++second) {
    const TimePoint now = start + seconds(second);
    for (const std::size_t i : list.TakeDue(now)) {
      const auto& script = outages[i];
      while (next[i] < script.size() && script[next[i]].to <= second) ++next[i];
      const bool down = next[i] < script.size() && script[next[i]].from <= second;
      if (list.Record(i, Result(!down), 1, now) != WatchChange::None) alerts[i].push_back(second);
    }
  }

  int told = 0;
  for (std::size_t i = 0; i < kHosts; ++i) {
    std::size_t alert = 0;
    for (const Outage& outage : outages[i]) {
      if (outage.to - outage.from < 100) continue;  // shorter than five probes
      ASSERT_LE(alert + 2, alerts[i].size()) << "host " << i;
      const std::int64_t down = alerts[i][alert++];
      const std::int64_t up = alerts[i][alert++];
      EXPECT_GE(down, outage.from + 40);
      EXPECT_LE(down, outage.from + 300 + 40);
      EXPECT_GE(up, outage.to + 40);
      EXPECT_LE(up, outage.to + 10 + 40);
      ++told;
    }
    EXPECT_EQ(alert, alerts[i].size()) << "host " << i << " was told of more than there was";
  }
  EXPECT_GT(told, 1000);
}

}  // namespace
}  // namespace netro
