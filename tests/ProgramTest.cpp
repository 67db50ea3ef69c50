// Programs that are started and left to themselves.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "TemporaryFolder.h"
#include "platform/ErrorNumbers.h"
#include "platform/Program.h"

namespace netro {
namespace {

// What the shell wrote into the file "done" with this script, which has the folder as $0.
std::string Shell(const std::string& script, std::vector<std::string> arguments = {},
                  const std::string& input = {}) {
  const TemporaryFolder folder;
  arguments.insert(
      arguments.begin(),
      {"-c", "exec 3>\"$0/part\"; " + script + "; mv \"$0/part\" \"$0/done\"", folder.Path()});
  EXPECT_EQ(StartProgram("sh", arguments, input), 0);
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!std::filesystem::exists(folder / "done")) {
    if (std::chrono::steady_clock::now() > limit) return "did not end";
    std::this_thread::yield();
  }
  return ReadFile(folder / "done");
}

TEST(Program, HasItsArgumentsAndItsInputAndNothingElse) {
  const std::string large(300'000, 'x');
  const int open = dup(0);  // not closed by exec
  const struct {
    const char* script;
    std::vector<std::string> arguments;
    std::string input;
    std::string written;
  } kCases[] = {
      {"printf '<%s>' \"$@\" >&3", {"", "a b", "$(id)", "*", "\"'"}, "", "<><a b><$(id)><*><\"'>"},
      {"cat >&3", {}, large, large},
      {"cat /dev/stdin >&3", {}, "again", "again"},
      {"cat >&3", {}, "", ""},
      {"echo lost; echo lost >&2; a=$(readlink /proc/$$/fd/1 /proc/$$/fd/2); echo \"$a\" >&3",
       {},
       "",
       "/dev/null\n/dev/null\n"},
      {"ls /proc/self/fd >&3", {}, "", "0\n1\n2\n3\n4\n"},  // of ls and the script, 3 and 4
      {"read -r a b c d e session g </proc/$$/stat; [ $session = $$ ] && echo own >&3",
       {},
       "",
       "own\n"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(Shell(test.script, test.arguments, test.input), test.written) << test.script;
  }
  close(open);
  errno = 0;
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD) << "no zombie";
}

TEST(Program, ThatCannotBeStartedIsAnError) {
  const TemporaryFolder folder;
  WriteFile(folder / "text", "no program");
  const struct {
    std::string program;
    std::vector<std::string> arguments;
    std::int32_t error;
    const char* text;
  } kCases[] = {
      {"", {}, 20002, "No such file or directory"},
      {"/nonesuch", {"a"}, 20002, "No such file or directory"},
      {"nonesuch-program", {}, 20002, "No such file or directory"},
      {folder.Path(), {}, 20013, "Permission denied"},
      {folder / "text", {}, 20013, "Permission denied"},
      {std::string("a\0b", 3), {}, 20002, "No such file or directory"},
      {"true", {std::string("a\0b", 3)}, 20022, "Invalid argument"},
      {"true", {std::string(1 << 20, 'x')}, 20007, "Argument list too long"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(StartProgram(test.program, test.arguments), test.error) << test.program;
    EXPECT_EQ(SystemErrorText(test.error), test.text);
  }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no zombie";
}

}  // namespace
}  // namespace netro
