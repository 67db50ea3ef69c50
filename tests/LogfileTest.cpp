// LogfileCLS: batches, events, and a file that goes away or cannot be written.
#include <gtest/gtest.h>
#include <netro/LogfileCLS.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "TemporaryFolder.h"

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

class Logfile : public testing::Test {
 protected:
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

TEST_F(Logfile, OneCallIsOneLine) {
  EXPECT_TRUE(log->StartLogging());
  for (const std::string text : {"a\r\nb", "\\r stays", "", "\n\n", "\r", "end"}) {
    EXPECT_TRUE(log->LogEvent(text));
  }
  EXPECT_TRUE(log->StopLogging());
  EXPECT_EQ(Written(), "a\\r\\nb\r\n\\r stays\r\n\r\n\\n\\n\r\n\\r\r\nend\r\n");
}

TEST_F(Logfile, GrowsByBatches) {
  log->BufferSize(3);
  EXPECT_TRUE(log->StartLogging());
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

TEST_F(Logfile, ARemovedFileIsMadeAnew) {
  journal.header = "head";
  EXPECT_TRUE(log->StartLogging());
  EXPECT_TRUE(log->LogEvent("before"));
  EXPECT_TRUE(log->CommitBuffer());
  std::filesystem::remove(name);
  EXPECT_TRUE(log->LogEvent("after"));
  EXPECT_TRUE(log->CommitBuffer());
  EXPECT_EQ(Written(), "head\r\nafter\r\n");
  EXPECT_EQ(journal.Take(), "new started commited commited");

  std::filesystem::remove_all(folder.Path());
  EXPECT_TRUE(log->LogEvent("kept"));
  EXPECT_FALSE(log->CommitBuffer());
  EXPECT_EQ(journal.Take(), "2:No such file or directory");
  std::filesystem::create_directory(folder.Path());
  EXPECT_TRUE(log->StopLogging());
  EXPECT_EQ(Written(), "head\r\nkept\r\n");
}

TEST_F(Logfile, AFullDiskKeepsTenBatchesAndLosesNoneOfThem) {
  log->BufferSize(2);
  EXPECT_TRUE(log->StartLogging());
  journal.Take();
  std::string expected;
  {
    const FullDisk full(10);
    for (int i = 0; i < 20; ++i) {
      const std::string line = "line " + std::to_string(100 + i);
      expected += line + "\r\n";
      EXPECT_EQ(log->LogEvent(line), i % 2 == 0) << "a failed batch is told once";
    }
    journal.Take();
    EXPECT_FALSE(log->LogEvent("too much"));
    EXPECT_EQ(journal.Take(), "27:File too large");
    EXPECT_FALSE(log->StopLogging());
    EXPECT_EQ(journal.Take(), "27:File too large");
    EXPECT_FALSE(log->LogEvent("stopped"));
  }
  EXPECT_TRUE(log->StartLogging());
  EXPECT_TRUE(log->CommitBuffer());
  EXPECT_EQ(Written(), expected) << "a line that was cut is continued";
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
  log->LogFileName(folder.Path());
  EXPECT_FALSE(log->StartLogging());
  EXPECT_EQ(journal.Take(), "21:Is a directory");
  EXPECT_FALSE(log->LogEvent("inactive"));

  log->LogFileName(name);
  journal.header = "a header";
  {
    const FullDisk full(3);
    EXPECT_FALSE(log->StartLogging());
  }
  EXPECT_FALSE(std::filesystem::exists(name)) << "or the next start would not write the header";
}

TEST_F(Logfile, EveryEventMayDeleteTheObject) {
  const struct {
    const char* file;
    const char* deleteAfter;
    std::function<void()> call;
  } kCases[] = {
      {"a", "new", [&] { log->StartLogging(); }},
      {"b", "new started", [&] { log->StartLogging(); }},
      {"c", "new started commited", [&] { log->StartLogging() && log->CommitBuffer(); }},
      {"d", "new started stopped", [&] { log->StartLogging() && log->StopLogging(); }},
      {"e", "10000:Logging not active.", [&] { log->LogEvent("x"); }},
  };
  for (const auto& test : kCases) {
    log = std::make_unique<LogfileCLS>();
    log->Events(&journal);
    log->LogFileName(folder / test.file);
    std::string seen;
    journal.whenCalled = [&] {
      seen += (seen.empty() ? "" : " ") + journal.Take();
      if (seen == test.deleteAfter) log.reset();
    };
    test.call();
    EXPECT_EQ(log, nullptr) << seen;
  }
}

}  // namespace
}  // namespace netro
