// A log that logrotate takes away while it is written.

#include <gtest/gtest.h>
#include <netro/LogfileCLS.h>

#include <filesystem>

#include "ServerProcess.h"

namespace netro::interop {
namespace {

TEST(Logrotate, EachOfItsWaysLeavesEveryLineOnce) {
  const std::string program = FindProgram("logrotate");
  if (program.empty()) GTEST_SKIP() << "logrotate is not installed";
  for (const std::string way : {"create 0600", "nocreate", "copytruncate"}) {
    const TemporaryFolder folder;
    const std::string name = folder / "log";
    WriteFile(folder / "conf", name + " {\n  rotate 9\n  " + way + "\n}\n");
    LogfileCLS log;
    log.LogFileName(name);
    log.BufferSize(7);
    ASSERT_TRUE(log.StartLogging());
    std::string expected;
    for (int i = 0; i < 60; ++i) {
      const std::string line = "line " + std::to_string(i);
      expected += line + "\r\n";
      EXPECT_TRUE(log.LogEvent(line)) << way;
      if (i % 20 == 19) interop::Run({program, "-f", "-s", folder / "state", folder / "conf"});
    }
    EXPECT_TRUE(log.StopLogging()) << way;
    std::string written;
    for (const std::string number : {".3", ".2", ".1", ""}) written += ReadFile(name + number);
    EXPECT_EQ(written, expected) << way;
    EXPECT_TRUE(std::filesystem::exists(name + ".3")) << way;
  }
}

}  // namespace
}  // namespace netro::interop
