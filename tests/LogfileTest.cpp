// LogfileCLS: batches, events, and a file that goes away or cannot be written.
#include <fcntl.h>
#include <netro/LogfileCLS.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <sstream>

#include "TestKit.h"

namespace netro {
namespace {

// Notes every event as one word, or "number:text" for an error.
class Journal : public LogfileCLSEvents {
 public:
  std::string header;
  std::function<void()> whenCalled = [] {};

  std::string Take() { return std::exchange(events_, {}); }

 private:
  void LoggingStarted() override { Note("started"); }
  void LoggingStopped() override { Note("stopped"); }
  void BufferCommited() override { Note("commited"); }
  void NewLogfile(std::string& Header) override {
    Header = header;
    Note("new");
  }
  void LogError(std::int32_t ErrorNr, const std::string& ErrorText) override {
    Note(std::to_string(ErrorNr) + ":" + ErrorText);
  }
  void Note(const std::string& event) {
    events_ += (events_.empty() ? "" : " ") + event;
    whenCalled();
  }

  std::string events_;
};

struct Logfile : testing::Test {
  Logfile() {
    log->Events(&journal);
    log->LogFileName(name);
  }

  std::string Written() const { return ReadFile(name); }

  TemporaryFolder folder;
  const std::string name = folder / "log.csv";
  Journal journal;
  std::unique_ptr<LogfileCLS> log = std::make_unique<LogfileCLS>();
};

// Files of this process may not grow beyond a size while it lives: a full disk.
class FullDisk {
 public:
  explicit FullDisk(rlim_t size) {
    handler_ = std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit now{size, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &now);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  const rlimit& Before() const { return before_; }

 private:
  rlimit before_{};
  void (*handler_)(int) = nullptr;
};

TEST_F(Logfile, EveryCallHasItsStateAndItsEvents) {
  EXPECT_FALSE(log->LogEvent("lost"));
  EXPECT_FALSE(log->CommitBuffer());
  EXPECT_FALSE(log->StopLogging());
  EXPECT_EQ(journal.Take(),
            "10000:Logging not active. 10000:Logging not active. 10000:Logging not active.");
  EXPECT_FALSE(std::filesystem::exists(name));

  journal.header = "time;text";
  EXPECT_TRUE(log->StartLogging());
  EXPECT_EQ(journal.Take(), "new started");
  EXPECT_EQ(Written(), "time;text\r\n") << "the header comes with the file";
  EXPECT_FALSE(log->StartLogging());
  EXPECT_EQ(journal.Take(), "10001:Logging already active.");
  EXPECT_TRUE(log->CommitBuffer());
  EXPECT_EQ(journal.Take(), "commited") << "also with nothing to write";
  EXPECT_TRUE(log->LogEvent("a"));
  EXPECT_TRUE(log->StopLogging());
  EXPECT_EQ(journal.Take(), "stopped");

  log->Translate("nicht aktiv|schon aktiv");
  EXPECT_TRUE(log->StartLogging());
  EXPECT_FALSE(log->StartLogging());
  EXPECT_EQ(journal.Take(), "started 10001:schon aktiv") << "the file is not new any more";
  EXPECT_TRUE(log->StopLogging());
  EXPECT_EQ(Written(), "time;text\r\na\r\n");
}

TEST_F(Logfile, OneCallIsOneLineAndMovesNoTerminal) {
  EXPECT_TRUE(log->StartLogging());
  for (const std::string text : {"a\r\nb", "\\r stays", "", "\n\n", "\r", "red \x1B[31m\t\x7F",
                                 "gr\xC3\xB6\xC3\x9F, gr\xF6\xDF, C1 \x9B \xC2\x9B",
                                 "exe.\xE2\x80\xAEgpj, all\xE2\x80\xA8new", "end"}) {
    EXPECT_TRUE(log->LogEvent(text));
  }
  EXPECT_TRUE(log->StopLogging());
  EXPECT_EQ(Written(),
            "a\\r\\nb\r\n\\r stays\r\n\r\n\\n\\n\r\n\\r\r\nred \\x1B[31m\t\\x7F\r\n"
            "gr\xC3\xB6\xC3\x9F, gr\xF6\xDF, C1 \\x9B \\xC2\\x9B\r\n"
            "exe.\\u202Egpj, all\\u2028new\r\nend\r\n");
}

TEST_F(Logfile, GrowsByBatches) {
  log->BufferSize(3);
  const mode_t before = umask(0);
  EXPECT_TRUE(log->StartLogging());
  umask(before);
  EXPECT_EQ(std::filesystem::status(name).permissions(), std::filesystem::perms(0640));
  std::string sizes;
  for (int i = 1; i <= 7; ++i) {
    EXPECT_TRUE(log->LogEvent("x"));
    sizes += std::to_string(Written().size() / 3);
  }
  EXPECT_EQ(sizes, "0033366");
  log->BufferSize(0);
  EXPECT_TRUE(log->LogEvent("x"));
  EXPECT_EQ(Written().size(), 8u * 3);
  log.reset();
  EXPECT_EQ(journal.Take(), "new started commited commited commited");
}

TEST_F(Logfile, DeletionWritesWhatIsCollected) {
  EXPECT_TRUE(log->StartLogging());
  EXPECT_TRUE(log->LogEvent("last"));
  log.reset();
  EXPECT_EQ(Written(), "last\r\n");
}

TEST_F(Logfile, AFileWhoseFolderWasRemovedIsMadeWhenThatIsThereAgain) {
  journal.header = "head";
  EXPECT_TRUE(log->StartLogging());
  std::filesystem::remove_all(folder.Path());
  EXPECT_TRUE(log->LogEvent("kept"));
  EXPECT_FALSE(log->CommitBuffer());
  EXPECT_EQ(journal.Take(), "new started 2:No such file or directory");
  std::filesystem::create_directory(folder.Path());
  EXPECT_TRUE(log->StopLogging());
  EXPECT_EQ(Written(), "head\r\nkept\r\n");
}

TEST_F(Logfile, ARotationLosesNoLine) {
  const std::string old = name + ".1";
  const std::tuple<const char*, std::function<void()>, std::string> kCases[] = {
      {"renamed", [&] { std::filesystem::rename(name, old); }, "head\r\na\r\n"},
      {"renamed, and a new one made",
       [&] {
         std::filesystem::rename(name, old);
         WriteFile(name, "");
       },
       "head\r\na\r\n"},
      {"copied and emptied",
       [&] {
         std::filesystem::copy_file(name, old);
         std::filesystem::resize_file(name, 0);
       },
       "head\r\na\r\n"},
      {"removed", [&] { std::filesystem::remove(name); }, ""},
  };
  for (const auto& [what, rotate, olds] : kCases) {
    journal.header = "head";
    ASSERT_TRUE(log->StartLogging());
    EXPECT_TRUE(log->LogEvent("a"));
    EXPECT_TRUE(log->CommitBuffer());
    rotate();
    EXPECT_TRUE(log->LogEvent("b"));
    EXPECT_TRUE(log->CommitBuffer());
    EXPECT_TRUE(log->LogEvent("c"));
    EXPECT_TRUE(log->StopLogging());
    EXPECT_EQ(Written(), "head\r\nb\r\nc\r\n") << what;
    EXPECT_EQ(ReadFile(old), olds) << what;
    std::filesystem::remove(name);
    std::filesystem::remove(old);
  }
}

TEST_F(Logfile, ANameIsTheOneOfTheStartWhereverTheProgramGoes) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder.Path());
  log->LogFileName("log.csv");
  EXPECT_TRUE(log->StartLogging());
  std::filesystem::current_path(before);
  EXPECT_TRUE(log->LogEvent("a"));
  EXPECT_TRUE(log->StopLogging());
  EXPECT_EQ(Written(), "a\r\n");
  EXPECT_FALSE(std::filesystem::exists(before / "log.csv"));
}

// Runs the work in a process of its own; returns how that ended.
template <class Work>
pid_t InAnotherProcess(Work work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  return child;
}

int EndOf(pid_t child) {
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

TEST_F(Logfile, AProgramThatChangesItsRootGoesOnWithItsFile) {
  constexpr int kNotAllowed = 2;
  // The path leads to another folder then, which must stay empty.
  const std::string inside = folder / "root" + name;
  std::filesystem::create_directories(std::filesystem::path(inside).parent_path());
  const int end = EndOf(InAnotherProcess([&] {
    if (!log->StartLogging() || !log->LogEvent("a") || !log->CommitBuffer()) return 1;
    const std::string root = folder / "root";
    if (chroot(root.c_str()) != 0 && (unshare(CLONE_NEWUSER) != 0 || chroot(root.c_str()) != 0)) {
      return kNotAllowed;
    }
    return log->LogEvent("b") && log->StopLogging() ? 0 : 1;
  }));
  if (WIFEXITED(end) && WEXITSTATUS(end) == kNotAllowed) GTEST_SKIP() << "may not change the root";
  EXPECT_EQ(end, 0);
  EXPECT_EQ(Written(), "a\r\nb\r\n");
  EXPECT_FALSE(std::filesystem::exists(inside));
}

// Each of them is killed behind its last commit. Rotations come from the first one, so that each
// has lines before and after it.
TEST_F(Logfile, SeveralProgramsLoseNothingByRotationsNorByBeingKilled) {
  constexpr int kPrograms = 4;
  constexpr int kLines = 2000;
  const auto line = [](int program, int i) {
    return std::to_string(program) + ":" + std::to_string(i) + std::string(50, 'x') + "\r";
  };
  std::vector<pid_t> programs;
  for (int program = 0; program < kPrograms; ++program) {
    programs.push_back(InAnotherProcess([&] {
      log->BufferSize(program + 1);
      bool good = log->StartLogging();
      for (int i = 0; i < kLines; ++i) {
        good = log->LogEvent(line(program, i).substr(0, line(program, i).size() - 1)) && good;
        if (program == 0 && i % 100 == 99) {
          std::filesystem::rename(name, name + "." + std::to_string(i));
        }
      }
      if (good && log->CommitBuffer() && log->LogEvent("not committed")) raise(SIGKILL);
      return 1;
    }));
  }
  for (const pid_t program : programs) {
    const int end = EndOf(program);
    EXPECT_TRUE(WIFSIGNALED(end)) << end;
  }
  std::multiset<std::string> lines;
  for (const auto& file : std::filesystem::directory_iterator(folder.Path())) {
    std::istringstream text(ReadFile(file.path().string()));
    for (std::string read; std::getline(text, read);) lines.insert(read);
  }
  lines.erase("not committed\r");  // BufferSize 1 has written it
  EXPECT_EQ(lines.size(), std::size_t{kPrograms} * kLines);
  for (int program = 0; program < kPrograms; ++program) {
    for (int i = 0; i < kLines; ++i) ASSERT_EQ(lines.count(line(program, i)), 1u) << program << i;
  }
}

TEST_F(Logfile, AFullDiskKeepsTenBatchesAndLosesNoneOfThem) {
  log->BufferSize(2);
  EXPECT_TRUE(log->StartLogging());
  journal.Take();
  std::string expected;
  {
    const FullDisk full(15);
    for (int i = 0; i < 20; ++i) {
      const std::string line = "line " + std::to_string(100 + i);
      expected += line + "\r\n";
      EXPECT_EQ(log->LogEvent(line), i % 2 == 0) << "a failed batch is told once";
      EXPECT_EQ(log->LastErr(), i % 2 == 0 ? 0 : 10010);
    }
    journal.Take();
    EXPECT_FALSE(log->LogEvent("too much"));
    EXPECT_EQ(journal.Take(), "27:File too large");
    EXPECT_EQ(log->LastErr(), 10011);
    EXPECT_EQ(log->LastErrMsg(), "File too large; lost.");
    EXPECT_FALSE(log->StopLogging());
    EXPECT_EQ(journal.Take(), "27:File too large");
    EXPECT_EQ(log->LastErr(), 10010);
    EXPECT_FALSE(log->LogEvent("stopped"));
    EXPECT_EQ(log->LastErr(), 10000);
  }
  EXPECT_TRUE(log->StartLogging());
  EXPECT_TRUE(log->CommitBuffer());
  EXPECT_EQ(Written(), expected) << "a line that was cut is continued";
}

TEST_F(Logfile, LinesThatAFailedStopKeptNeverEndUpInAnotherLog) {
  for (const bool lost : {false, true}) {
    log->LogFileName(name);
    EXPECT_TRUE(log->StartLogging());
    EXPECT_TRUE(log->LogEvent("a"));
    {
      const FullDisk full(0);
      EXPECT_FALSE(log->StopLogging());
      if (!lost) setrlimit(RLIMIT_FSIZE, &full.Before());
      log->LogFileName(folder / "other");
      journal.Take();
      EXPECT_TRUE(log->StartLogging());
    }
    EXPECT_EQ(journal.Take(), lost ? "27:File too large started" : "new started");
    EXPECT_EQ(log->LastErr(), lost ? 10011 : 0);
    EXPECT_TRUE(log->LogEvent("b"));
    EXPECT_TRUE(log->StopLogging());
    EXPECT_EQ(Written(), "a\r\n");
    EXPECT_EQ(ReadFile(folder / "other"), lost ? "b\r\nb\r\n" : "b\r\n");
  }
}

TEST_F(Logfile, ALineThatAnotherProgramHasCutIsEnded) {
  EXPECT_TRUE(log->StartLogging());
  EXPECT_TRUE(log->LogEvent("b"));
  {
    const FullDisk full(0);
    EXPECT_FALSE(log->CommitBuffer());
  }
  std::ofstream(name, std::ios::app) << "a, as far as";
  EXPECT_TRUE(log->CommitBuffer());
  EXPECT_EQ(Written(), "a, as far as\r\nb\r\n");
}

TEST_F(Logfile, APipeNeitherHoldsNorEndsTheProgram) {
  ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
  EXPECT_FALSE(log->StartLogging());
  EXPECT_EQ(journal.Take(), "6:No such device or address") << "nobody reads";
  const int reader = open(name.c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_TRUE(log->StartLogging());
  EXPECT_TRUE(log->LogEvent("a"));
  EXPECT_TRUE(log->CommitBuffer());
  char bytes[4];
  EXPECT_EQ(read(reader, bytes, sizeof bytes), 3);
  close(reader);
  journal.Take();
  EXPECT_TRUE(log->LogEvent("b"));
  EXPECT_FALSE(log->CommitBuffer());
  EXPECT_EQ(journal.Take(), "32:Broken pipe");
}

TEST_F(Logfile, BatchesHaveTheirSizeAgainAfterAStop) {
  log->BufferSize(1);
  EXPECT_TRUE(log->StartLogging());
  {
    const FullDisk full(0);
    EXPECT_FALSE(log->LogEvent("a"));
  }
  EXPECT_TRUE(log->StopLogging());
  EXPECT_TRUE(log->StartLogging());
  EXPECT_TRUE(log->LogEvent("b"));
  EXPECT_EQ(Written(), "a\r\nb\r\n");
}

TEST_F(Logfile, AFileThatCannotBeMadeLeavesNothing) {
  const std::string refused = "40:The log file is a symbolic link, which is not followed";
  WriteFile(folder / "secrets", "kept");
  for (const auto* target : {"secrets", "missing"})
    std::filesystem::create_symlink(target, folder / ("to " + std::string(target)));
  for (const auto& [path, reason] : std::vector<std::pair<std::string, std::string>>{
           {folder.Path(), "21:Is a directory"},
           {folder / "to secrets", refused},
           {folder / "to missing", "new " + refused}}) {
    log->LogFileName(path);
    EXPECT_FALSE(log->StartLogging());
    EXPECT_EQ(journal.Take(), reason);
    EXPECT_FALSE(log->LogEvent("inactive"));
    journal.Take();
  }
  EXPECT_EQ(ReadFile(folder / "secrets"), "kept");
  EXPECT_FALSE(std::filesystem::exists(folder / "missing"));

  log->LogFileName(name);
  journal.header = "a header";
  {
    const FullDisk full(3);
    EXPECT_FALSE(log->StartLogging());
  }
  EXPECT_FALSE(std::filesystem::exists(name)) << "or the next start would not write the header";
}

TEST_F(Logfile, EveryEventMayDeleteTheObject) {
  const std::tuple<const char*, const char*, std::function<void()>> kCases[] = {
      {"a", "new", [&] { log->StartLogging(); }},
      {"b", "new started", [&] { log->StartLogging(); }},
      {"c", "new started commited", [&] { log->StartLogging() && log->CommitBuffer(); }},
      {"d", "new started stopped", [&] { log->StartLogging() && log->StopLogging(); }},
      {"e", "10000:Logging not active.", [&] { log->LogEvent("x"); }},
  };
  for (const auto& [file, deleteAfter, call] : kCases) {
    log = std::make_unique<LogfileCLS>();
    log->Events(&journal);
    log->LogFileName(folder / file);
    std::string seen;
    journal.whenCalled = [&] {
      seen += (seen.empty() ? "" : " ") + journal.Take();
      if (seen == deleteAfter) log.reset();
    };
    call();
    EXPECT_EQ(log, nullptr) << seen;
  }
}

}  // namespace
}  // namespace netro
