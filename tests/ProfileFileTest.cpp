// The profile document: what is read, what a change leaves alone, what no line can hold, and size.
// That a text comes back as it was is told by the fuzz target CacheFile and its corpus.
#include "TestKit.h"
#include "support/ProfileFile.h"

namespace netro {
namespace {

using Names = std::vector<std::string>;

constexpr std::string_view kMixed =
    "before=any section\n"
    "; a comment\n"
    "\n"
    "[One]\n"
    "  Key =\tsome = text ; not a comment \t\n"
    "# another=comment\n"
    "no sign\n"
    "=no key\n"
    "empty=\n"
    "\n"
    "KEY=second\n"
    "\n"
    " [ two ] trailing words\n"
    "quoted=\"a b\"\n"
    "[not a header\n"
    "[one]\n"
    "late=1\n"
    "[]\n"
    "key=nameless section";

TEST(ProfileFile, Reads) {
  const ProfileFile file = ProfileFile::Parse(kMixed);
  const std::tuple<std::string, std::string, std::optional<std::string>> kCases[] = {
      {"One", "Key", "some = text ; not a comment"},
      {"oNE", "kEY", "some = text ; not a comment"},
      {"one", "empty", ""},
      {"two", "quoted", "\"a b\""},
      {"", "key", "nameless section"},
      {"one", "late", std::nullopt},  // the second section of that name
      {"one", "before", std::nullopt},
      {"", "before", std::nullopt},
      {"one", "# another", std::nullopt},
      {"one", "no sign", std::nullopt},
      {"one", "", std::nullopt},
      {"two", "[not a header", std::nullopt},
      {"three", "key", std::nullopt},
  };
  for (const auto& [section, key, value] : kCases)
    EXPECT_EQ(file.Value(section, key), value) << section << " / " << key;
  EXPECT_EQ(file.Keys("ONE"), Names({"Key", "empty"}));
  EXPECT_EQ(file.Keys("three"), Names());
}

TEST(ProfileFile, ReadsBothLineEnds) {
  ProfileFile file = ProfileFile::Parse("[a]\r\nb=1\r\nc = 2 \nd=3");
  EXPECT_FALSE(file.IsChanged());
  EXPECT_EQ(file.Value("a", "b"), "1");
  EXPECT_EQ(file.Value("a", "c"), "2");
  EXPECT_EQ(file.Value("a", "d"), "3");
  EXPECT_TRUE(file.Set("a", "c", "4"));
  EXPECT_TRUE(file.Set("a", "e", "5"));
  EXPECT_EQ(file.Text(), "[a]\r\nb=1\r\nc = 4 \nd=3\r\ne=5\r\n");
  EXPECT_EQ(ProfileFile::Parse("\xEF\xBB\xBF[a]\nb=1").Value("a", "b"), "1");
}

TEST(ProfileFile, ChangesOneLineOnly) {
  const struct {
    std::string before, key, value, after;
  } kCases[] = {
      {"", "k", "v", "[S]\nk=v\n"},
      {"x", "k", "v", "x\n[S]\nk=v\n"},
      {"[s]", "k", "v", "[s]\nk=v\n"},
      {"[s]\nK = 1 \n[t]\n", "k", "22", "[s]\nK = 22 \n[t]\n"},
      {"[s]\nk=\t\n", "k", "v", "[s]\nk=v\t\n"},
      {"[s]\nk=1", "k", "", "[s]\nk=\n"},
      {"[s]\na=1\n\n\n[t]\nk=0\n", "k", "v", "[s]\na=1\nk=v\n\n\n[t]\nk=0\n"},
      {"[s]\na=1\n\n; end\n \n", "k", "v", "[s]\na=1\n\n; end\nk=v\n \n"},
      {"[s]\n[s]\nk=1\n", "k", "v", "[s]\nk=v\n[s]\nk=1\n"},
      {"[s]\nk=1\nk=2\n", "k", "v", "[s]\nk=v\nk=2\n"},
      {"[t]\nk=1\n", "K", "a=[b];#", "[t]\nk=1\n[S]\nK=a=[b];#\n"},
  };
  for (const auto& [before, key, value, after] : kCases) {
    ProfileFile parsed = ProfileFile::Parse(before);
    ProfileFile file = std::move(parsed);
    EXPECT_TRUE(file.Set("S", key, value)) << before;
    EXPECT_TRUE(file.IsChanged());
    EXPECT_EQ(file.Text(), after);
    EXPECT_EQ(file.Value("s", key), value);
    EXPECT_EQ(ProfileFile::Parse(file.Text()).Value("s", key), value);
  }
}

TEST(ProfileFile, Removes) {
  const std::tuple<std::string, bool, std::string> kCases[] = {
      {"", false, ""},
      {"[s]", false, "[s]"},
      {"k=1\n[t]\nk=1", false, "k=1\n[t]\nk=1"},
      {"[s]\nk=1", true, "[s]\n"},
      {"[s]\na=1\n K = 2\n\n[t]\n", true, "[s]\na=1\n\n[t]\n"},
      {"[s]\nk=1\na=b\nK=2\n;k=3\nk=4\n", true, "[s]\na=b\n;k=3\n"}};
  for (const auto& [before, removed, after] : kCases) {
    ProfileFile file = ProfileFile::Parse(before);
    EXPECT_EQ(file.Remove("S", "k"), removed) << before;
    EXPECT_EQ(file.IsChanged(), removed);
    EXPECT_EQ(file.Text(), after);
    EXPECT_EQ(file.Value("s", "k"), std::nullopt);
    EXPECT_FALSE(file.Remove("S", "k"));
    EXPECT_TRUE(file.Set("s", "K", "again"));
    EXPECT_EQ(file.Value("s", "k"), "again");
  }
}

TEST(ProfileFile, RefusesWhatNoLineHolds) {
  const struct {
    std::vector<std::string> texts;
    bool section, key, value;
  } kCases[] = {{{"plain", "two words", "\xFF\x01", "a;#["}, true, true, true},
                {{"a=b", "=", "[a", ";a", "#a"}, true, false, true},
                {{"a]b"}, false, true, true},
                {{""}, false, false, true},
                {{" a", "a\t", " ", "a\nb", "a\r", std::string("a\0", 2)}, false, false, false}};
  for (const auto& [texts, section, key, value] : kCases)
    for (const std::string& text : texts) {
      EXPECT_EQ(ProfileFile::CanHoldSection(text), section) << text;
      EXPECT_EQ(ProfileFile::CanHoldKey(text), key) << text;
      EXPECT_EQ(ProfileFile::CanHoldValue(text), value) << text;
      ProfileFile file;
      EXPECT_EQ(file.Set(text, "k", "v"), section) << text;
      EXPECT_EQ(file.Set("s", text, "v"), key) << text;
      EXPECT_EQ(file.Set("s", "other", text), value) << text;
      const ProfileFile again = ProfileFile::Parse(file.Text());
      EXPECT_EQ(again.Value(text, "k").has_value(), section) << text;
      EXPECT_EQ(again.Value("s", text).has_value(), key) << text;
      EXPECT_EQ(again.Value("s", "other").value_or("none"), value ? text : "none") << text;
    }
}

// What costs a search per key would run for minutes here, and the test be ended.
TEST(ProfileFile, LargeFilesCostNoMoreThanTheirSize) {
  constexpr int kKeys = 300'000;
  ProfileFile file = ProfileFile::Parse("[S]\nsame=0\n" + std::string(kKeys, '\n') + "[T]\n");
  for (int i = 0; i < kKeys; ++i) {
    ASSERT_TRUE(file.Set("s", "key" + std::to_string(i), std::to_string(i)));
    ASSERT_TRUE(file.Set("T" + std::to_string(i), "k", "v"));
  }
  ProfileFile again = ProfileFile::Parse(file.Text());
  ASSERT_EQ(again.Keys("S").size(), kKeys + std::size_t{1});
  for (int i = kKeys - 1; i >= 0; --i) ASSERT_TRUE(again.Remove("s", "KEY" + std::to_string(i)));
  EXPECT_EQ(again.Keys("S"), Names{"same"});
  EXPECT_EQ(again.Value("T" + std::to_string(kKeys - 1), "k"), "v");

  std::string repeated = "[s]\n";
  for (int i = 0; i < kKeys; ++i) repeated += "k=1\n";
  ProfileFile oneKey = ProfileFile::Parse(repeated);
  EXPECT_TRUE(oneKey.Remove("s", "k"));
  EXPECT_EQ(oneKey.Text(), "[s]\n");
}

}  // namespace
}  // namespace netro
