// The lookup cache: lifetime, keys, and the profile file that it is saved to and restored from.
#include <sys/stat.h>

#include "SystemKit.h"
#include "TestKit.h"
#include "dns/LookupCache.h"
#include "support/DateText.h"
#include "tests/Environment.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

namespace fs = std::filesystem;

std::string InSeconds(double amount) { return DateToText(AddSeconds(WallClock(), amount)); }

TEST(LookupCache, FindsWithoutCaseAndNeverReplaces) {
  LookupCache cache;
  EXPECT_EQ(cache.Find("www.example.org"), std::nullopt);
  cache.Insert("WWW.Example.org", "192.0.2.7");
  cache.Insert("www.example.org", "192.0.2.2");
  EXPECT_EQ(cache.Find("www.eXAMPLE.ORG"), "192.0.2.7");
  EXPECT_EQ(cache.Find("www.example.or"), std::nullopt);
  EXPECT_EQ(cache.Find(""), std::nullopt);
  EXPECT_EQ(cache.Count(), 1);
  cache.Clear();
  EXPECT_EQ(cache.Count(), 0);
  cache.Insert("www.example.org", "192.0.2.2");
  EXPECT_EQ(cache.Find("www.example.org"), "192.0.2.2");
}

TEST(LookupCache, EntriesLiveTenMinutes) {
  LookupCache cache;
  cache.Insert("a", "192.0.2.1");
  cache.Insert("b", "192.0.2.2");
  AdvanceClockForTests(seconds(540));
  EXPECT_EQ(cache.Find("a"), "192.0.2.1");  // and does not live longer for it
  AdvanceClockForTests(seconds(61));
  EXPECT_EQ(cache.Count(), 2);  // nobody has asked yet
  EXPECT_EQ(cache.Find("A"), std::nullopt);
  EXPECT_EQ(cache.Count(), 1);
  cache.Insert("b", "192.0.2.3");
  EXPECT_EQ(cache.Find("b"), std::nullopt);
}

struct SavedLookupCache : testing::Test {
  TemporaryFolder folder_;
  const std::string file_ = folder_ / "cache.ini";
  LookupCache cache_;
};

TEST_F(SavedLookupCache, RestoresWhatHasNotExpired) {
  cache_.Insert("old.example", "192.0.2.1");
  AdvanceClockForTests(seconds(300));
  cache_.Insert("New.Example", "192.0.2.2");
  cache_.Insert("192.0.2.2", "new.example");
  AdvanceClockForTests(seconds(301));
  EXPECT_EQ(cache_.Save(file_), 2);
  EXPECT_TRUE(HasMode(file_, 0600));

  LookupCache restored;
  EXPECT_EQ(restored.Restore(file_), 2);
  EXPECT_EQ(restored.Find("new.example"), "192.0.2.2");
  EXPECT_EQ(restored.Find("192.0.2.2"), "new.example");
  EXPECT_EQ(restored.Save(folder_ / "again.ini"), 2);
  EXPECT_EQ(ReadFile(folder_ / "again.ini"), ReadFile(file_));  // keys as asked, the same expiry

  AdvanceClockForTests(seconds(300));
  EXPECT_EQ(restored.Find("new.example"), std::nullopt);
}

TEST_F(SavedLookupCache, SavingKeepsTheRestOfTheFile) {
  const std::string other = "; mine\r\n[Other]\r\na.example=1\r\n\r\n";
  const std::string expired = "gone.example=2001-01-01T00:00:00.000Z|192.0.2.9\r\n";
  WriteFile(file_, other + "[dns]\r\nA.EXAMPLE = nonsense\r\n" + expired);
  AdvanceClockForTests(seconds(-1000));
  cache_.Insert("gone.example", "192.0.2.3");
  AdvanceClockForTests(seconds(1000));
  cache_.Insert("a.example", "192.0.2.1");
  cache_.Insert("b.example", "192.0.2.2");
  ASSERT_EQ(cache_.Save(file_), 2);
  const std::string text = ReadFile(file_);
  const std::string start = other + "[dns]\r\nA.EXAMPLE = 20";
  EXPECT_EQ(text.substr(0, start.size()), start);
  EXPECT_NE(text.find("Z|192.0.2.1\r\n" + expired + "b.example=20"), text.npos) << text;
  EXPECT_NE(text.find("Z|192.0.2.2\r\n"), text.npos) << text;
}

TEST_F(SavedLookupCache, WhatNoLineHoldsIsNotWritten) {
  const std::string kKeys[] = {"", " a", "a=b", "[a]", ";a", "#a", "a\nb=2", std::string("a\0", 2)};
  for (const std::string& key : kKeys) cache_.Insert(key, "192.0.2.1");
  cache_.Insert("result", "a\n[Other]");
  EXPECT_EQ(cache_.Count(), static_cast<std::int32_t>(std::size(kKeys)) + 1);
  EXPECT_EQ(cache_.Save(file_), 0);
  EXPECT_EQ(ReadFile(file_), "");
  EXPECT_EQ(cache_.Restore(file_), 0);
}

TEST_F(SavedLookupCache, SkipsWhatItCannotRead) {
  const std::string later = InSeconds(300);
  const std::string longest(63, 'a');
  std::vector<std::pair<std::string, std::int32_t>> cases = {
      {later + "192.0.2.1", 0},  {later + " |192.0.2.1", 0},
      {"|192.0.2.1", 0},         {"2026-02-30T00:00:00.000Z|192.0.2.1", 0},
      {"tomorrow|192.0.2.1", 0}, {"", 0}};
  for (const std::string& good :
       {"192.0.2.1"s, "host.example"s, "_a-b.example."s, "127.1"s, longest})
    cases.emplace_back(later + "|" + good, 1);
  for (const std::string& bad :
       {longest + "a", "256.1.1.1"s, "host.1"s, "192.0.2.1.5."s, "0.0.0.0"s, "255.255.255.255"s,
        "."s, ""s, "two words"s, "192.0.2.1|192.0.2.2"s, "a\x01"s, "a/b"s})
    cases.emplace_back(later + "|" + bad, 0);
  for (const auto& [value, count] : cases) {
    const std::string text = "key.example=x\n[Other]\nkey.example=x\n[DNS]\nkey.example=" + value;
    WriteFile(file_, text);
    LookupCache cache;
    EXPECT_EQ(cache.Restore(file_), count) << value;
    EXPECT_EQ(cache.Count(), count) << value;
    EXPECT_EQ(cache.Find("key.example").value_or(""),
              count == 1 ? value.substr(later.size() + 1) : "");
    EXPECT_EQ(ReadFile(file_), text);
  }
}

TEST_F(SavedLookupCache, RestoredEntriesLiveTenMinutesAtMost) {
  WriteFile(file_,
            "[DNS]\na=" + InSeconds(1e9) + "|192.0.2.1\nb=" + InSeconds(60) + "|192.0.2.2\n");
  EXPECT_EQ(cache_.Restore(file_), 2);
  AdvanceClockForTests(seconds(590));
  EXPECT_EQ(cache_.Find("a"), "192.0.2.1");
  EXPECT_EQ(cache_.Find("b"), std::nullopt);
  AdvanceClockForTests(seconds(11));
  EXPECT_EQ(cache_.Find("a"), std::nullopt);
}

TEST_F(SavedLookupCache, RestoringDeletesTheExpired) {
  const std::string kept = "good.example=" + InSeconds(60) + "|192.0.2.1\n";
  WriteFile(file_, "; mine\n[DNS]\na=" + InSeconds(-1) + "|192.0.2.2\n" + kept +
                       "bad=nonsense\nb = " + InSeconds(-1000) +
                       "|no result at all\n\n[Other]\na=1\n");
  EXPECT_EQ(cache_.Restore(file_), 1);
  EXPECT_EQ(cache_.Find("good.example"), "192.0.2.1");
  EXPECT_EQ(ReadFile(file_), "; mine\n[DNS]\n" + kept + "bad=nonsense\n\n[Other]\na=1\n");

  AdvanceClockForTests(seconds(61));
  LookupCache later;
  EXPECT_EQ(later.Restore(file_), 0);
  EXPECT_EQ(later.Count(), 0);
  EXPECT_EQ(ReadFile(file_), "; mine\n[DNS]\nbad=nonsense\n\n[Other]\na=1\n");
}

TEST_F(SavedLookupCache, RestoringKeepsWhatIsThereAndWritesNothing) {
  WriteFile(file_, "[DNS]\nA=" + InSeconds(60) + "|192.0.2.1\na=" + InSeconds(60) + "|192.0.2.2\n");
  struct stat before {
  }, after{};
  ASSERT_EQ(stat(file_.c_str(), &before), 0);
  for (const char* there : {"192.0.2.1", "192.0.2.3"}) {
    EXPECT_EQ(cache_.Restore(file_), 1);
    EXPECT_EQ(cache_.Count(), 1);
    EXPECT_EQ(cache_.Find("a"), there);
    cache_.Clear();
    cache_.Insert("a", "192.0.2.3");
  }
  ASSERT_EQ(stat(file_.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino) << "nothing has expired";
}

TEST_F(SavedLookupCache, FilesThatCannotBeUsed) {
  ASSERT_TRUE(MakePipe((folder_ / "pipe")));
  cache_.Insert("a", "192.0.2.1");
  EXPECT_EQ(cache_.Restore(folder_ / "missing"), -1);
  WriteFile(folder_ / "target", "[DNS]\nb=" + InSeconds(60) + "|192.0.2.1\n");
  fs::create_symlink(folder_ / "target", folder_ / "link");
  for (const std::string& name :
       {folder_.Path(), folder_ / "pipe", folder_ / "no/such/folder", folder_ / "link",
        folder_ / std::string("a\0b", 3), std::string("/dev/null")}) {
    EXPECT_EQ(cache_.Save(name), -1) << name;
    EXPECT_EQ(cache_.Restore(name), -1) << name;
  }
  EXPECT_EQ(cache_.Count(), 1);
  EXPECT_EQ(cache_.Save(file_), 1);
}

TEST_F(SavedLookupCache, WithoutNameTheSettingsFileServes) {
  const Environment config("XDG_CONFIG_HOME", nullptr), home("HOME", folder_.Path().c_str());
  cache_.Insert("a", "192.0.2.1");
  EXPECT_EQ(cache_.Restore(""), -1);
  EXPECT_FALSE(fs::exists(folder_ / ".config"));
  EXPECT_EQ(cache_.Save(""), 1);
  EXPECT_TRUE(HasMode(folder_ / ".config", 0700));
  EXPECT_TRUE(HasMode(folder_ / ".config/netro.ini", 0600));
  EXPECT_EQ(cache_.Restore(""), 1);

  const Environment nowhere("HOME", nullptr);
  EXPECT_EQ(cache_.Save(""), -1);
  EXPECT_EQ(cache_.Restore(""), -1);
}

// What costs a search per entry would run for minutes here, and the test be ended.
TEST_F(SavedLookupCache, LargeCachesCostNoMoreThanTheirSize) {
  constexpr int kEntries = 200'000;
  for (int i = 0; i < kEntries; ++i)
    cache_.Insert("Host" + std::to_string(i) + ".example", "192.0.2.1");
  ASSERT_EQ(cache_.Save(file_), kEntries);
  LookupCache restored;
  ASSERT_EQ(restored.Restore(file_), kEntries);
  EXPECT_EQ(restored.Find("host0.example"), "192.0.2.1");
  AdvanceClockForTests(seconds(601));
  EXPECT_EQ(cache_.Restore(file_), 0);
  EXPECT_EQ(ReadFile(file_), "[DNS]\n");
  for (int i = 0; i < kEntries; ++i)
    ASSERT_EQ(restored.Find("host" + std::to_string(i) + ".example"), std::nullopt);
  EXPECT_EQ(restored.Count(), 0);
}

}  // namespace
}  // namespace netro
