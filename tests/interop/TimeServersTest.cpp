// The time client against xinetd's time service and chrony's NTP server, whose clock is this
// system's own and so the measure. Chrony needs root, and port 123 of an address of 127.0.0.0/8.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netro/QueryTimeCLS.h>
#include <netro/TimeSurveyCls.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>

#include "ServerProcess.h"
#include "platform/Clock.h"
#include "support/DateText.h"
#include "tests/SystemRoot.h"

namespace netro::interop {
namespace {

// The leap indicator of an address's NTP server; -1 when there is no reply.
int AskLeap(const std::string& address) {
  const std::string reply = AskByHand(address, 123, '\x23' + std::string(47, '\0'));
  return reply.size() == 48 ? static_cast<unsigned char>(reply[0]) >> 6 : -1;
}

// chronyd with some lines of configuration, on an address of its own.
class ChronyServer {
 public:
  enum Readiness { kAnswers, kIsSynchronised };

  explicit ChronyServer(const std::string& lines, Readiness readiness = kIsSynchronised)
      : server_([&](const auto& folder, const auto&) { return Prepare(folder, lines); },
                [&](int) {
                  const int leap = AskLeap(address_);
                  return readiness == kAnswers ? leap >= 0 : leap >= 0 && leap < 3;
                }) {}

  static bool IsInstalled() { return !FindProgram("chronyd").empty(); }

  bool IsUp() const { return server_.IsUp(); }
  const std::string& Address() const { return address_; }
  std::string Output() const { return server_.Output(); }

  // The clock that it tells, which with -x is not this system's; the text is one for chronyc.
  void SetTime(const std::string& time) const {
    Run({FindProgram("chronyc"), "-h", server_.Folder() / "control/socket", "settime", time});
  }

 private:
  std::vector<std::string> Prepare(const std::string& folder, const std::string& lines) {
    static std::uint32_t next = 0;
    const in_addr address{
        htonl(0x7F80'0001 + static_cast<std::uint32_t>(getpid()) % 0x7'0000 * 16 + next++)};
    address_ = inet_ntoa(address);
    mkdir((folder + "/control").c_str(), 0700);  // others may not look into it, says chronyd
    WriteFile(folder + "/conf", "port 123\nbindaddress " + address_ + "\nbindcmdaddress " + folder +
                                    "/control/socket\ncmdport 0\npidfile " + folder + "/pid\n" +
                                    lines);
    return {FindProgram("chronyd"), "-d", "-x", "-u", "root", "-f", folder + "/conf"};
  }

  std::string address_;  // before the server, whose start sets it
  ServerProcess server_;
};

class Chrony : public testing::Test {
 protected:
  void SetUp() override {
    if (!ChronyServer::IsInstalled()) GTEST_SKIP() << "chrony is not installed";
    if (geteuid() != 0) GTEST_SKIP() << "chrony needs root";
    time_.Timeout(5);
    time_.ClearDNSCache();
  }

  bool Ask(const ChronyServer& server) {
    EXPECT_TRUE(server.IsUp()) << server.Output();
    time_.Server(server.Address());
    return time_.QueryTime();
  }

  // The server's clock is this one.
  void ExpectThisTime() {
    EXPECT_EQ(time_.LastErr(), 0);
    EXPECT_NEAR((time_.DateTime() - WallClock()) * 86'400, 0, 2);
    EXPECT_NEAR(time_.SNTPOffset(), 0, 0.5);
    EXPECT_GE(time_.SNTPDelay(), 0);
    EXPECT_LE(time_.SNTPDelay(), time_.SNTPRoundTripDelay());
    EXPECT_EQ(time_.SNTPMode(), SNTPModeEnum::SNTPServer);
  }

  SystemRoot root_;
  QueryTimeCLS time_;
};

TEST_F(Chrony, SecondaryOfAnotherServerOrItsOwnClock) {
  const ChronyServer upper("local stratum 5\nallow 127.0.0.0/8\n");
  ASSERT_TRUE(upper.IsUp()) << upper.Output();
  root_.Put("etc/hosts", upper.Address() + " upper.test\n127.127.1.1 own-clock.test\n");
  const ChronyServer lower("server " + upper.Address() +
                           " iburst minpoll -6 maxpoll -6\nallow 127.0.0.0/8\n");
  EXPECT_TRUE(Ask(lower));
  ExpectThisTime();
  EXPECT_EQ(time_.SNTPStratum(), SNTPStratumEnum::SecondaryReference);
  EXPECT_EQ(time_.SNTPreferenceID(), upper.Address() + " (upper.test)");
  EXPECT_GT(time_.SNTPRootDelay(), 0);
  EXPECT_GT(time_.SNTPRootDispersion(), 0);

  EXPECT_TRUE(Ask(upper));
  ExpectThisTime();
  EXPECT_EQ(time_.SNTPreferenceID(), "127.127.1.1 (own-clock.test)");
  EXPECT_EQ(time_.SNTPRootDelay(), 0);
  EXPECT_GT(time_.SNTPPrecision(), std::ldexp(1, 200)) << "an exponent below zero, as unsigned";
  time_.SNTPVersion(4);
  EXPECT_TRUE(Ask(upper));
  EXPECT_EQ(time_.SNTPreferenceID(), "2103-11-20T13:24:17.000Z") << "127.127.1.1 as seconds";
}

TEST_F(Chrony, ASurveyFindsTheMajority) {
  const ChronyServer first("local stratum 5\nallow 127.0.0.0/8\n");
  const ChronyServer unset("allow 127.0.0.0/8\n", ChronyServer::kAnswers);
  const ChronyServer wrong("local stratum 1\nmanual\nallow 127.0.0.0/8\n");
  const ChronyServer second("local stratum 6\nallow 127.0.0.0/8\n");
  ASSERT_TRUE(first.IsUp() && unset.IsUp() && wrong.IsUp() && second.IsUp()) << wrong.Output();
  wrong.SetTime("1 hour ago");
  TimeSurveyCls survey;
  survey.Interval(10);
  survey.Samples(10);
  survey.Servers({first.Address(), unset.Address(), wrong.Address(), second.Address()});
  EXPECT_TRUE(survey.Survey()) << survey.LastErrMsg();
  std::string states;
  for (const auto& report : survey.Reports()) {
    states += "AFLU"[static_cast<std::size_t>(report.State)];
  }
  EXPECT_EQ(states, "ALFA");
  EXPECT_LE(std::abs(survey.Offset()), survey.Bound());
  EXPECT_LT(survey.Bound(), 0.1);
  EXPECT_EQ(survey.Reports()[1].Reason, "its clock is not set");
  EXPECT_NEAR(survey.Reports()[2].Offset, -3600, 2) << "chronyc tells whole seconds";
}

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
