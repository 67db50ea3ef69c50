// The time client against xinetd's time service.

#include <gtest/gtest.h>
#include <netro/QueryTimeCLS.h>
#include <unistd.h>

#include "ServerProcess.h"
#include "support/DateText.h"

namespace netro::interop {
namespace {

std::string TimeService(const std::string& port, const std::string& lines) {
  return "service time\n{\n  port = " + port +
         "\n  bind = 127.0.0.1\n  user = " + std::to_string(geteuid()) +
         "\n  instances = UNLIMITED\n  cps = 100000 1\n  log_type = FILE /dev/null\n"
         "  type = INTERNAL UNLISTED\n" +
         lines + "}\n";
}

TEST(Xinetd, TellsTheTimeOverUdpAndTcp) {
  if (FindProgram("xinetd").empty()) GTEST_SKIP() << "xinetd is not installed";
  const ServerProcess server([](const std::string& folder, const std::string& port) {
    WriteFile(folder + "/conf", TimeService(port,
                                            "  id = time-stream\n  socket_type = stream\n"
                                            "  protocol = tcp\n  wait = no\n") +
                                    TimeService(port,
                                                "  id = time-dgram\n  socket_type = dgram\n"
                                                "  protocol = udp\n  wait = yes\n"));
    return std::vector<std::string>{FindProgram("xinetd"), "-dontfork", "-f",
                                    folder + "/conf",      "-pidfile",  folder + "/pid"};
  });
  ASSERT_TRUE(server.IsUp()) << server.Output();
  QueryTimeCLS time;
  time.Server("127.0.0.1");
  time.Port(server.Port());
  time.Timeout(5);
  for (int i = 0; i < 100; ++i) {
    time.UseUDP(i % 2 == 0);
    EXPECT_TRUE(time.QueryTime()) << time.LastErrMsg();
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    EXPECT_NEAR((time.DateTime() - ToDate(now)) * 86'400, 0, 2);
    EXPECT_LT(time.SNTPRoundTripDelay(), 5);
  }
}

}  // namespace
}  // namespace netro::interop
