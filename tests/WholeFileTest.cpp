// Files read and replaced whole: kinds, rights, links, failures, two writers at once.

#include <cerrno>
#include <cstdlib>
#include <iterator>

#include "TestKit.h"
#include "platform/ErrorNumbers.h"
#include "platform/WholeFile.h"
#include "tests/Environment.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

namespace fs = std::filesystem;

struct WholeFile : testing::Test {
  std::ptrdiff_t FilesHere() const {
    return std::distance(fs::directory_iterator(folder_.Path()), fs::directory_iterator());
  }

  TemporaryFolder folder_;
  std::string text_ = "old";
};

TEST_F(WholeFile, ComesBackAsWritten) {
  const std::string every = std::string("\0\r\n\xFF", 4);
  std::string large;
  while (large.size() < 300'000) large += every + std::to_string(large.size());
  for (const std::string& text : {every, large, std::string(), std::string(65536, 'x')}) {
    ASSERT_EQ(ReplaceFile(folder_ / "a", text), 0);
    EXPECT_EQ(ReadFile(folder_ / "a"), text);
    ASSERT_EQ(ReadWholeFile(folder_ / "a", text_), 0);
    EXPECT_EQ(text_, text);
  }
  EXPECT_EQ(FilesHere(), 1);
  const fs::path before = fs::current_path();
  fs::current_path(folder_.Path());
  EXPECT_EQ(ReplaceFile("a", "here"), 0) << "a relative name";
  EXPECT_EQ(ReadWholeFile("./a", text_), 0);
  fs::current_path(before);
  EXPECT_EQ(text_, "here");
  ASSERT_EQ(ReadWholeFile("/proc/self/status", text_), 0) << "said to hold no byte";
  EXPECT_NE(text_.find("Pid:"), std::string::npos);
}

TEST_F(WholeFile, IsPrivate) {
  WriteFile(folder_ / "a", "old");
  fs::permissions(folder_ / "a", fs::perms(0644));
  ASSERT_EQ(ReplaceFile(folder_ / "a", "new"), 0);
  EXPECT_TRUE(HasMode(folder_ / "a", 0600));
}

TEST_F(WholeFile, OtherKindsAreRefusedAtOnce) {
  ASSERT_TRUE(MakePipe(folder_ / "pipe"));
  const std::pair<std::string, int> kCases[] = {
      {folder_ / "missing/a", ENOENT},
      {folder_.Path(), EISDIR},
      {folder_ / "pipe", EINVAL},
      {"/dev/zero", EINVAL},
      {"/dev/null", EINVAL},
      {folder_ / std::string(300, 'x'), ENAMETOOLONG},  // found out by the renaming
      {folder_ / std::string("a\0b", 3), EINVAL},
  };
  for (const auto& [path, error] : kCases) {
    text_ = "old";
    EXPECT_EQ(ReadWholeFile(path, text_), FileErrorNumber(error)) << path;
    EXPECT_EQ(text_, "");
    EXPECT_EQ(ReplaceFile(path, "new"), FileErrorNumber(error)) << path;
  }
  EXPECT_EQ(FilesHere(), 1);
  WriteFile(folder_ / "a", "x");
  fs::resize_file(folder_ / "a", (std::uintmax_t{1} << 30) + 1);  // takes no room
  EXPECT_EQ(ReadWholeFile(folder_ / "a", text_), FileErrorNumber(EFBIG));
  EXPECT_EQ(text_, "");
}

TEST_F(WholeFile, LinksAreReadAndReplaced) {
  WriteFile(folder_ / "target", "precious");
  for (const std::string& target : {folder_ / "target", folder_ / "missing", folder_.Path()}) {
    fs::create_symlink(target, folder_ / "link");
    ASSERT_EQ(ReplaceFile(folder_ / "link", "new"), 0) << target;
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder_ / "link")));
    fs::remove(folder_ / "link");
  }
  fs::create_symlink(folder_ / "target", folder_ / "link");
  EXPECT_EQ(ReadWholeFile(folder_ / "link", text_), 0);
  EXPECT_EQ(text_, "precious");
}

TEST_F(WholeFile, AFailedReplacementChangesNothing) {
  WriteFile(folder_ / "a", "old");
  auto small = WithFileSize(5000);
  const std::int32_t few = ReplaceFile(folder_ / "a", std::string(6000, 'x'));
  const std::int32_t many = ReplaceFile(folder_ / "a", std::string(600'000, 'x'));
  small.reset();
  EXPECT_EQ(few, FileErrorNumber(EFBIG));
  EXPECT_EQ(many, FileErrorNumber(EFBIG));
  EXPECT_EQ(ReadFile(folder_ / "a"), "old");
  EXPECT_EQ(FilesHere(), 1);
}

TEST_F(WholeFile, ReadersNeverSeeHalfOfIt) {
  const std::string name = folder_ / "a";
  ASSERT_EQ(ReplaceFile(name, std::string(100'000, '0')), 0);
  std::atomic<int> running{2};
  std::atomic<bool> failed{false};
  const auto write = [&](char c) {
    for (int i = 0; i < 50; ++i) failed = failed || ReplaceFile(name, std::string(100'000, c)) != 0;
    --running;
  };
  std::thread one(write, '1'), two(write, '2');
  bool whole = true;
  while (running > 0 && whole) {
    whole = ReadWholeFile(name, text_) == 0 && text_ == std::string(100'000, text_[0]);
  }
  one.join();
  two.join();
  EXPECT_TRUE(whole);
  EXPECT_FALSE(failed);
  EXPECT_EQ(FilesHere(), 1);
}

TEST_F(WholeFile, FoldersAreMadeWithThoseAbove) {
  const std::string deep = folder_ / "a/b/c";
  EXPECT_EQ(CreateFolder(deep), 0);
  EXPECT_EQ(CreateFolder(deep), 0);
  EXPECT_EQ(CreateFolder(deep + "/"), 0);
  EXPECT_TRUE(HasMode(deep, 0700));
  EXPECT_TRUE(HasMode(folder_ / "a", 0700));
  WriteFile(folder_ / "file", "");
  EXPECT_EQ(CreateFolder(folder_ / "file"), FileErrorNumber(EEXIST));
  EXPECT_EQ(CreateFolder(folder_ / "file/below"), FileErrorNumber(ENOTDIR));
  EXPECT_EQ(CreateFolder(""), FileErrorNumber(ENOENT));
}

TEST_F(WholeFile, SettingsLieWhereTheEnvironmentSays) {
  const std::tuple<const char*, const char*, const char*> kCases[] = {
      {"/c", "/h", "/c"},        {nullptr, "/h", "/h/.config"}, {"", "/h", "/h/.config"},
      {"c", "/h", "/h/.config"}, {nullptr, nullptr, ""},        {nullptr, "", ""},
      {"./c", "h", ""},
  };
  for (const auto& [config, home, folder] : kCases) {
    const Environment first("XDG_CONFIG_HOME", config), second("HOME", home);
    EXPECT_EQ(UserConfigFolder(), folder);
  }
}

}  // namespace
}  // namespace netro
