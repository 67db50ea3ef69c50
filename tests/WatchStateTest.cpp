// What a watcher remembers of a host, and the file that lets it go on after a restart.
#include <gtest/gtest.h>

#include <filesystem>

#include "TemporaryFolder.h"
#include "diag/WatchState.h"
#include "diag/WatchStateText.h"
#include "support/DateText.h"

namespace netro {
namespace {

using State = WatchHistory::State;
constexpr Date kDay = 46'000;  // midnight
constexpr Date kHour = 1.0 / 24;

TEST(WatchHistory, AMonthIsSummedUpInBoundedMemory) {
  WatchHistory history;
  // Every ten minutes for 40 days; from 06:00 to 12:00 of every tenth day it is down.
  for (int i = 0; i < 40 * 144; ++i) {
    const Date date = AddSeconds(kDay, i * 600.0);
    const bool isDown = i / 144 % 10 == 0 && i % 144 >= 36 && i % 144 < 72;
    history.Record(date, isDown ? State::Down : State::Up, i == 0 ? 0 : 600, isDown ? -1 : i % 7,
                   "reason " + std::to_string(i / 144));
  }
  const WatchedPast past = history.Past(kDay + 39.99);
  EXPECT_EQ(past.Times.size(), 120u);
  EXPECT_EQ(past.Hours.size(), 48u);
  ASSERT_EQ(past.Days.size(), 31u);
  ASSERT_EQ(past.Outages.size(), 4u);
  EXPECT_EQ(past.Outages[3].Reason, "reason 30");
  EXPECT_DOUBLE_EQ((past.Outages[3].End - past.Outages[3].Begin) * 24, 6);
  EXPECT_EQ(past.UptimeDay, 1);
  EXPECT_EQ(past.UptimeWeek, 1);
  EXPECT_NEAR(past.UptimeMonth, 1 - 3 * 6 / (30 * 24.0), 0.001);
  const WatchedSpan& worst = past.Days[31 - 10];
  EXPECT_EQ(worst.Begin, kDay + 30);
  EXPECT_EQ(worst.DownSeconds, 6 * 3600);
  EXPECT_EQ(worst.Failed, 36);
  EXPECT_EQ(worst.Shortest, 0);
  EXPECT_EQ(worst.Longest, 6);
}

TEST(WatchHistory, ClocksMayBeSet) {
  WatchHistory history;
  EXPECT_EQ(history.Past(kDay).UptimeMonth, -1);
  history.Record(kDay + 400, State::Up, 0, 5, "");  // a year ahead
  history.Record(kDay, State::Up, 300, 5, "");      // and back
  history.Record(kDay + kHour, State::Down, 300, -1, std::string(1000, 'x'));
  history.Record(kDay, State::Down, 300, -1, "");  // an hour back
  history.Record(kDay - kHour, State::Up, -5, 5, "");
  const WatchedPast past = history.Past(kDay);
  ASSERT_EQ(past.Hours.size(), 2u);
  EXPECT_EQ(past.Days.size(), 1u);
  EXPECT_EQ(past.Days[0].UpSeconds + past.Days[0].DownSeconds, 900);
  ASSERT_EQ(past.Outages.size(), 1u);
  EXPECT_EQ(past.Outages[0].End, past.Outages[0].Begin) << "not before";
  EXPECT_EQ(past.Outages[0].Reason.size(), WatchHistory::kLongestReason);
}

class WatchStateFile : public testing::Test {
 protected:
  std::string Read() {
    hosts.clear();
    others.clear();
    return ReadWatchState(path, {[this](WatchMemory& memory, WatchHistory& history) {
                                   hosts.emplace_back(std::move(memory), std::move(history));
                                 },
                                 [this](const std::string& key, const std::string& value) {
                                   others += key + "=" + value + ";";
                                 }});
  }

  TemporaryFolder folder;
  const std::string path = folder / "state";
  std::vector<std::pair<WatchMemory, WatchHistory>> hosts;
  std::string others;
};

TEST_F(WatchStateFile, GivesBackWhatItWasGivenAndNothingOfADamagedOne) {
  EXPECT_EQ(Read(), "") << "there is none yet";
  WatchHistory history;
  history.Record(kDay, State::Up, 0, 5, "");
  history.Record(kDay + 1, State::Down, 300, -1, "end\\ of\nline\r");
  const WatchMemory memory{"a\nhost b", "x\\n", "tcp:22 \"SSH\"", WatchedDown, 1, 2, -1, kDay + 1,
                           kDay,        "",     " text ",         "1 2\n"};
  WatchStateWriter writer;
  writer.Add(memory, history);
  writer.Add(WatchMemory(), WatchHistory());
  writer.Add("hook", "x {}\n");
  ASSERT_EQ(writer.Replace(path), 0);
  EXPECT_EQ(Read(), "");
  ASSERT_EQ(hosts.size(), 2u);
  EXPECT_EQ(others, "hook=x {}\n;");
  EXPECT_EQ(hosts[0].first.name, memory.name);
  WatchStateWriter again;
  for (const auto& [host, past] : hosts) again.Add(host, past);
  again.Add("hook", "x {}\n");
  const std::string text = ReadFile(path);
  ASSERT_EQ(again.Replace(path), 0);
  EXPECT_EQ(ReadFile(path), text);

  for (std::size_t size = 0; size < text.size(); ++size) {
    WatchStateContent content;
    ASSERT_NE(ParseWatchState(text.substr(0, size), content), 0u) << size;
  }
  WriteFile(path, text.substr(0, text.size() - 3));
  EXPECT_NE(Read().find("is damaged. The file is now '" + path + ".bad'"), std::string::npos);
  EXPECT_TRUE(hosts.empty() && others.empty());
  EXPECT_EQ(ReadFile(path + ".bad"), text.substr(0, text.size() - 3));
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace netro
