// The watcher's settings file, its message texts and its log lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "diag/WatchLog.h"
#include "diag/WatchSettings.h"

namespace netro {
namespace {

constexpr char kLeast[] = "[HostNames]\na=10.0.0.1|Ping\n[UpActions]\n1=log\n";

WatchSettings Read(const std::string& text) {
  WatchSettings settings;
  EXPECT_EQ(ReadWatchSettings(text, settings), "");
  return settings;
}

TEST(WatchSettings, WhatMakesAFileUnusableIsNamed) {
  const struct {
    const char* text;
    const char* error;
  } kCases[] = {
      {kLeast, ""},
      {"", "Neither a DownActions nor a UpAction is defined."},
      {"[HostNames]\na=b|Ping\n", "Neither a DownActions nor a UpAction is defined."},
      {"[DownActions]\n1=log\n", "No Hosts to observe found."},
      {"[DownActions]\n1=log\n[HostNames]\na=\nb=|Ping\n", "No Hosts to observe found."},
      {"[DownActions]\n1=lgo\n",
       "Can not read settings. 'lgo' in section 'DownActions' is no "
       "action."},
      {"[UpActions]\n1=run||x\n",
       "Can not read settings. 'run||x' in section 'UpActions' is no "
       "action."},
  };
  for (const auto& test : kCases) {
    WatchSettings settings;
    EXPECT_EQ(ReadWatchSettings(test.text, settings), test.error) << test.text;
  }
}

TEST(WatchSettings, DelaysAndCyclesAreRaisedAndNoNumbersAreDefaults) {
  const WatchSettings standard = Read(kLeast);
  EXPECT_EQ(standard.upDelay, 300);
  EXPECT_EQ(standard.downDelay, 10);
  EXPECT_EQ(standard.upCycle, 5);
  EXPECT_EQ(standard.downCycle, 5);
  EXPECT_EQ(standard.timeout, 300);
  EXPECT_EQ(standard.httpTimeout, 30);
  EXPECT_FALSE(standard.playSonarSound);
  const WatchSettings low = Read(std::string(kLeast) +
                                 "[Settings]\nUpDelay=60\nDownDelay=1\nUpCycle=0\nDownCycle=-3\n"
                                 "HTTPTimeout=x\n[PingSettings]\nPlaySonarSound=-1\nTimeout=\n");
  EXPECT_EQ(low.upDelay, 300);
  EXPECT_EQ(low.downDelay, 10);
  EXPECT_EQ(low.upCycle, 1);
  EXPECT_EQ(low.downCycle, 1);
  EXPECT_EQ(low.httpTimeout, 30);
  EXPECT_EQ(low.timeout, 300);
  EXPECT_TRUE(low.playSonarSound);
  EXPECT_EQ(Read(std::string(kLeast) + "[Settings]\nUpDelay=3600\n").upDelay, 3600);
}

TEST(WatchSettings, HostsHaveAKind) {
  const WatchSettings settings = Read(
      "[DownActions]\n1=log\n[HostNames]\na = h1|Ping\nb=h2|ping\nc=http://x/?a|b|HTTP\n"
      "d=h4|smtp\ne=h5\n");
  const std::vector<WatchTarget> expected = {{"a", "h1", false},
                                             {"b", "h2", false},
                                             {"c", "http://x/?a|b", true},
                                             {"d", "h4", false},
                                             {"e", "h5", false}};
  EXPECT_EQ(settings.targets, expected);
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
  const struct {
    const char* text;
    const char* filled;
  } kCases[] = {
      {"", ""},
      {"SenderHostName$|HostName$|Name$|Host$",
       "me|web; rm -rf $(HOME)|web; rm -rf $(HOME)|"
       "10.0.0.1"},
      {"UpDelay$ DownDelay$ UpCycle$ DownCycle$", "300 10 5 5"},
      {"ErrorDump$", "Name$ is %1"},
      {"Name name$ $Name $$", "Name name$ $Name $$"},
      {"UpLogMsg$", "UpLogMsg$"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(FillWatchText(test.text, settings, facts), test.filled);
  }
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
  for (const char* formula : {"=1+1", "+1", "-1", "@sum(a)", "\tx", "\rx"}) {
    EXPECT_EQ(WatchLogLine({formula}), "\"'" + std::string(formula) + "\"");
  }
}

}  // namespace
}  // namespace netro
