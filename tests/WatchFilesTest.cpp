// The watcher's settings, texts and log lines; what it remembers, also after a restart.
#include "TestKit.h"
#include "diag/WatchLog.h"
#include "diag/WatchSettings.h"
#include "diag/WatchState.h"
#include "diag/WatchStateText.h"
#include "support/DateText.h"

namespace netro {
namespace {

using State = WatchHistory::State;
constexpr Date kDay = 46'000;  // midnight
constexpr Date kHour = 1.0 / 24;
constexpr char kLeast[] = "[HostNames]\na=10.0.0.1|Ping\n[UpActions]\n1=log\n";

WatchSettings Read(const std::string& text) {
  WatchSettings settings;
  EXPECT_EQ(ReadWatchSettings(text, {true, false, false}, settings), "");
  return settings;
}

TEST(WatchSettings, WhatMakesAFileUnusableIsNamed) {
  const std::string hosts = "[DownActions]\n1=log\n[HostNames]\na=";
  const std::pair<std::string, const char*> kCases[] = {
      {"", "Neither a DownActions nor a UpAction is defined."},
      {"[HostNames]\na=b|Ping\n", "Neither a DownActions nor a UpAction is defined."},
      {"[DownActions]\n1=log\n", "No Hosts to observe found."},
      {hosts + "\nb=|Ping\n", "No Hosts to observe found."},
      {hosts + "h\nb=h|smpt\n", "Line 5: 'smpt' is no kind of probe."},
      {hosts + "h|tcp\n", "Line 4: 'tcp' is no kind of probe."},
      {hosts + "h|tcp:65536\n", "Line 4: 'tcp:65536' is no kind of probe."},
      {hosts + "http://h/|http 300-200\n", "Line 4: 'http 300-200' is no kind of probe."},
      {hosts + "http://h/|http \"x\n", "Line 4: 'http \"x' is no kind of probe."},
      {hosts + "h|dns:a b\n", "Line 4: 'dns:a b' is no kind of probe."},
      {hosts + "https://h/|http\n", "Line 4: 'https://h/' needs TLS, which this program has not."},
      {hosts + "http://h/|https\n", "Line 4: 'http://h/' is no https URL."},
      {hosts + "http://h/\n", "Line 4: 'http://h/' is a URL without a kind of probe."},
      {hosts + "h\n;\n\nA=h\n", "Line 7: a host of this name is in the list already."},
      {hosts + "h\n[x]\n[hostnames]\nb=h\n", "Line 6: a second list of hosts."},
      {hosts + "h\nb=h\n[Parents]\na=b\nb=c\n",
       "Line 8: 'b' stands behind 'c', which is not in the list."},
      {hosts + "h\nb=h\n[Parents]\na=b\nb=A\n", "Line 7: 'a' stands behind itself."},
      {hosts + "h\n[Parents]\nc=a\n", "Line 6: 'c' is not in the list of hosts."},
      {hosts + "h\nb=h\n[Settings]\nUplink=b\n[Parents]\nb=a\n",
       "Line 9: 'b' is the uplink, which stands behind no other."},
      {hosts + "h\n[Settings]\nUplink=c\n", "Line 6: 'c' is not in the list of hosts."},
      {"[Settings]\nDownWindow=4\n", "Line 2: DownWindow is less than its cycle."},
      {"[Settings]\nRemindAfter=1h\n", "Line 2: '1h' is no number from 0 to 31622400."},
      {"[Settings]\nQuietHours=22:00-6\n", "Line 2: '22:00-6' are no hours, as 22:00-06:00."},
      {hosts + "h\n[Settings]\nMailServer=h:smtp\n", "Line 6: 'h:smtp' is no host, as host:port."},
      {"[DownActions]\n1=webhook|https://h/\n",
       "'webhook|https://h/' in section 'DownActions' is no action."},
      {"[DownActions]\n1=lgo\n", "'lgo' in section 'DownActions' is no action."},
      {"[UpActions]\n1=run||x\n", "'run||x' in section 'UpActions' is no action."},
  };
  for (const auto& [text, error] : kCases) {
    WatchSettings settings;
    const std::string told = ReadWatchSettings(text, {}, settings);
    const bool whole = *error == 'N';
    EXPECT_EQ(told, (whole ? "" : "Can not read settings. ") + std::string(error)) << text;
  }
}

TEST(WatchSettings, DelaysAndCyclesAreRaisedAndNoNumbersAreDefaults) {
  const WatchSettings low = Read(std::string(kLeast) +
                                 "[Settings]\nUpDelay=60\nDownDelay=1\nUpCycle=0\nDownCycle=-3\n"
                                 "HTTPTimeout=x\n[PingSettings]\nPlaySonarSound=-1\nTimeout=\n");
  EXPECT_EQ(low.upDelay, 300);
  EXPECT_EQ(low.downDelay, 10);
  EXPECT_EQ(low.up.count, 1);
  EXPECT_EQ(low.down.count, 1);
  EXPECT_EQ(low.httpTimeout, 30);
  EXPECT_EQ(low.timeout, 300);
  EXPECT_TRUE(low.playSonarSound);
  EXPECT_EQ(Read(std::string(kLeast) + "[Settings]\nUpDelay=3600\n").upDelay, 3600);
}

TEST(WatchSettings, HostsHaveAKind) {
  const auto target = [](std::string name, std::string host, WatchKind kind, std::string text) {
    WatchTarget made;
    made.name = std::move(name);
    made.host = std::move(host);
    made.kind = kind;
    made.kindText = std::move(text);
    return made;
  };
  const WatchSettings settings = Read(
      "[DownActions]\n1=log\n[HostNames]\na = h1|Ping\nb=h2|ping\nc=http://x/?a|b|HTTP\n"
      "e=h5\nf=https://x/|http\ng=https://x/|https 14d 200 \"all is \"well\"\"\n"
      "h=h|TCP:22 \"SSH-\"\ni=h|smtp\nj=h|dns:example.com:5353\nk=h|ntp\n"
      "[Parents]\na=B\n");
  std::vector<WatchTarget> expected = {
      target("a", "h1", WatchKind::Ping, "Ping"),
      target("b", "h2", WatchKind::Ping, "Ping"),
      target("c", "http://x/?a|b", WatchKind::Http, "http"),
      target("e", "h5", WatchKind::Ping, "Ping"),
      target("f", "https://x/", WatchKind::Https, "http"),
      target("g", "https://x/", WatchKind::Https, "https"),
      target("h", "h", WatchKind::Tcp, "tcp:22"),
      target("i", "h", WatchKind::Smtp, "smtp"),
      target("j", "h", WatchKind::Dns, "dns:example.com:5353"),
      target("k", "h", WatchKind::Ntp, "ntp"),
  };
  expected[0].parent = "B";
  expected[5].daysLeft = 14;
  expected[5].lowestStatus = expected[5].highestStatus = 200;
  expected[5].text = "all is \"well\"";
  expected[6].port = 22;
  expected[6].text = "SSH-";
  expected[7].port = 25;
  expected[8].port = 5353;
  expected[8].question = "example.com";
  EXPECT_EQ(settings.targets, expected);
}

TEST(WatchHours, MaySpanMidnight) {
  EXPECT_FALSE(WatchHours().Has(0));
  const WatchHours night{22 * 60, 6 * 60};
  const WatchHours noon{12 * 60, 13 * 60};
  EXPECT_TRUE(night.Has(23 * 60) && night.Has(0) && !night.Has(6 * 60) && !night.Has(12 * 60));
  EXPECT_TRUE(noon.Has(12 * 60) && !noon.Has(13 * 60) && !noon.Has(0));
}

TEST(WatchSettings, ParametersAreSplitBeforePlaceholdersAreFilledIn) {
  const WatchSettings settings = Read(
      "[HostNames]\na=b\n[DownActions]\n1=Run|/bin/echo|-n \"two words\" Name$ a|b \"\" x\"y\"\n"
      "2=mail\n3=run|prog\n");
  ASSERT_EQ(settings.downActions.size(), 3u);
  EXPECT_EQ(settings.downActions[0].kind, WatchAction::Run);
  EXPECT_EQ(settings.downActions[0].program, "/bin/echo");
  const std::vector<std::string> expected = {"-n", "two words", "Name$", "a|b", "", "xy"};
  EXPECT_EQ(settings.downActions[0].parameters, expected);
  EXPECT_EQ(settings.downActions[1].kind, WatchAction::Mail);
  EXPECT_TRUE(settings.downActions[2].parameters.empty());
}

TEST(WatchText, PlaceholdersStandForSettingsAndHost) {
  WatchSettings settings = Read(kLeast);
  const WatchFacts facts{"me", "web; rm -rf $(HOME)", "10.0.0.1", "Name$ is %1"};
  const std::pair<const char*, const char*> kCases[] = {
      {"", ""},
      {"SenderHostName$|HostName$|Name$|Host$",
       "me|web; rm -rf $(HOME)|web; rm -rf $(HOME)|10.0.0.1"},
      {"UpDelay$ DownDelay$ UpCycle$ DownCycle$", "300 10 5 5"},
      {"ErrorDump$", "Name$ is %1"},
      {"Name name$ $Name $$", "Name name$ $Name $$"},
      {"UpLogMsg$", "UpLogMsg$"},
  };
  for (const auto& [text, filled] : kCases) EXPECT_EQ(FillWatchText(text, settings, facts), filled);
  EXPECT_EQ(FillWatchText(settings.downLogMsg, settings, {"me", "web", "h", "no answer"}),
            "me: web could not be reached! no answer");
  EXPECT_EQ(FillWatchText(settings.upActionMsg, settings, {"me", "web", "h", ""}),
            "me: 5 connects in a row to web successfull after 'DownAction'. Retry in 300 seconds.");
  settings.upSubject = "[DownSubject$ UpSubject$]";
  settings.downSubject = "(UpSubject$ Name$)";
  EXPECT_EQ(FillWatchText("UpSubject$", settings, {"me", "web", "h", ""}),
            "[(UpSubject$ web) UpSubject$]")
      << "a text does not go into itself";
}

// Without a bound, four texts of a thousand names each would be a million million.
TEST(WatchText, TextsThatNameOneAnotherEnd) {
  WatchSettings settings;
  const auto many = [](const std::string& name) {
    std::string text;
    for (int i = 0; i < 1000; ++i) text += name;
    return text;
  };
  settings.upActionMsg = many("DownActionMsg$");
  settings.downActionMsg = many("UpSubject$");
  settings.upSubject = many("DownSubject$");
  EXPECT_EQ(FillWatchText("UpActionMsg$", settings, {}), "");
}

TEST(WatchLog, LinesAreQuotedAndNoFormulas) {
  EXPECT_EQ(WatchLogLine({"a", "", "say \"hi\", you", "1"}),
            "\"a\",\"\",\"say \"\"hi\"\", you\",\"1\"");
  for (const char* formula : {"=1+1", "+1", "-1", "@sum(a)", "\tx", "\rx"})
    EXPECT_EQ(WatchLogLine({formula}), "\"'" + std::string(formula) + "\"");
}

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

struct WatchStateFile : testing::Test {
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
