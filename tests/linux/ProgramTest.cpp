// Programs that are started and left to themselves.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "Environment.h"
#include "TestKit.h"
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
  RunningProgram shell;
  EXPECT_EQ(shell.Start("sh", arguments, input), 0);
  while (!shell.HasEnded()) std::this_thread::yield();
  return ReadFile(folder / "done");
}

void ExpectNoChild() {
  errno = 0;
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD) << "no zombie";
}

TEST(Program, HasItsArgumentsAndItsInputAndNothingElse) {
  const std::string large(300'000, 'x');
  const int open = dup(0);  // not closed by exec
  const std::tuple<const char*, std::vector<std::string>, std::string, std::string> kCases[] = {
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
  for (const auto& [script, arguments, input, written] : kCases)
    EXPECT_EQ(Shell(script, arguments, input), written) << script;
  close(open);
  ExpectNoChild();
}

TEST(Program, IsKilledWithWhatItHasStarted) {
  const TemporaryFolder folder;
  RunningProgram shell;
  ASSERT_EQ(shell.Start("sh", {"-c",
                               "sleep 1000 & echo $! >\"$0/part\"; mv \"$0/part\" \"$0/pid\";"
                               " wait",
                               folder.Path()}),
            0);
  while (!std::filesystem::exists(folder / "pid")) std::this_thread::yield();
  EXPECT_FALSE(shell.HasEnded());
  const pid_t grandchild = std::stoi(ReadFile(folder / "pid"));
  shell.Kill();
  while (!shell.HasEnded()) std::this_thread::yield();
  const auto isAlive = [&] {  // not when it waits for being taken in by whoever inherits it
    const std::string path = "/proc/" + std::to_string(grandchild) + "/stat";
    return std::filesystem::exists(path) && ReadFile(path).find(") Z") == std::string::npos;
  };
  while (isAlive()) std::this_thread::yield();
  shell.Kill();  // nobody
  ExpectNoChild();
}

// By its path as well as by its name alone.
TEST(Program, MayBeAScriptThatNamesNoInterpreter) {
  const TemporaryFolder folder;
  const std::string done = folder / "done";
  WriteFile(folder / "script", "printf %s \"$1\" >\"$2\"");
  std::filesystem::permissions(folder / "script", std::filesystem::perms::owner_all);
  const Environment path("PATH", (folder.Path() + ":" + getenv("PATH")).c_str());
  for (const std::string& name : {folder / "script", std::string("script")}) {
    RunningProgram program;
    ASSERT_EQ(program.Start(name, {"a b", done}), 0) << name;
    while (!program.HasEnded()) std::this_thread::yield();
    EXPECT_EQ(ReadFile(done), "a b") << name;
    std::filesystem::remove(done);
  }
}

// The host's own child has ended first, and its end stays for the host.
TEST(Program, OfTheHostStaysForTheHost) {
  const pid_t own = fork();
  if (own == 0) _exit(7);
  siginfo_t end{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(own), &end, WEXITED | WNOWAIT), 0);
  ASSERT_EQ(StartProgram("true", {}), 0);  // left to itself, and taken in by a later start
  const std::string onlyOwn = std::to_string(own) + " ";
  do {
    RunningProgram next;
    EXPECT_EQ(next.Start("true", {}), 0);
    while (!next.HasEnded()) std::this_thread::yield();
  } while (ReadFile("/proc/thread-self/children") != onlyOwn);
  int status = 0;
  EXPECT_EQ(waitpid(-1, &status, 0), own);
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(Program, ThatCannotBeStartedIsAnError) {
  const TemporaryFolder folder;
  WriteFile(folder / "text", "no program");
  const std::tuple<std::string, std::vector<std::string>, std::int32_t, const char*> kCases[] = {
      {"", {}, 20002, "No such file or directory"},
      {"/nonesuch", {"a"}, 20002, "No such file or directory"},
      {"nonesuch-program", {}, 20002, "No such file or directory"},
      {folder.Path(), {}, 20013, "Permission denied"},
      {folder / "text", {}, 20013, "Permission denied"},
      {std::string("a\0b", 3), {}, 20002, "No such file or directory"},
      {"true", {std::string("a\0b", 3)}, 20022, "Invalid argument"},
      {"true", {std::string(1 << 20, 'x')}, 20007, "Argument list too long"},
  };
  for (const auto& [program, arguments, error, text] : kCases) {
    EXPECT_EQ(StartProgram(program, arguments), error) << program;
    EXPECT_EQ(SystemErrorText(error), text);
  }
  ExpectNoChild();
}

}  // namespace
}  // namespace netro
