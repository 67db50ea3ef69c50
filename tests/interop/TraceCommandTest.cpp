// Echoes and the commands "netro trace" and "netro ping" beside the programs ping, traceroute, mtr
// and fping, in network namespaces: the same answers, hops and loss, the same hosts that are there.

#include <gtest/gtest.h>
#include <netro/WatchpostCls.h>

#include <sstream>

#include "ServerProcess.h"
#include "platform/Clock.h"
#include "tests/EchoKit.h"
#include "tests/EchoNetworks.h"

namespace netro::interop {
namespace {

using namespace std::chrono_literals;

const std::string kCommand = NETRO_COMMAND;

// "3 10.3.0.2" for each line of a table that begins with the number of a hop and its host, or
// "3 10.3.0.2 0.0% 3" with its loss and what it was sent.
std::vector<std::string> HopsOf(const std::string& command, bool withFigures = false) {
  std::istringstream lines(OwnNetwork::Read(command));
  std::vector<std::string> hops;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    int number = 0;
    std::string host, loss, sent;
    if (!(words >> number)) continue;
    if (words.peek() == '.') words >> host;  // of mtr's "3.|--"
    if (!(words >> host)) continue;
    if (withFigures && !(words >> loss >> sent)) continue;
    hops.push_back(std::to_string(number) + " " + host +
                   (withFigures ? " " + loss + " " + sent : ""));
  }
  EXPECT_FALSE(hops.empty()) << command;
  return hops;
}

class BesideTools : public testing::Test {
 protected:
  void SetUp() override {
    if (!hosts_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    ASSERT_TRUE(FourHosts::AwaitWay());
  }

  FourHosts hosts_;
};

// Answered, unreachable, prohibited: the host that says so is named by both.
TEST_F(BesideTools, TheSameAnswersAsPing) {
  if (FindProgram("ping").empty()) GTEST_SKIP() << "ping is not installed";
  for (const std::string ip : {"10.3.0.2", "10.9.1.1", "10.9.2.1", "fd03::2", "fd09:0:1::1"}) {
    EchoCls echo;
    EchoSink sink;
    echo.Events(&sink);
    EXPECT_NE(echo.Send(ip, 0, 56), 0);
    ASSERT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
    ASSERT_EQ(sink.seen.size(), 1u);
    const bool answered = sink.seen[0].status == 0;
    const std::string output = OwnNetwork::Read("ping -n -c 1 -w 5 " + ip);
    const std::string wanted = (answered ? "64 bytes from " : "From ") + sink.seen[0].host;
    EXPECT_NE(output.find(wanted), std::string::npos) << output;
    EXPECT_EQ(output.find(" ttl=62 ") != std::string::npos, answered) << output;
  }
}

class TraceCommand : public BesideTools, public testing::WithParamInterface<const char*> {};

// One probe at a time and for each hop: a router of this system refuses five times at once, then
// once a second.
TEST_P(TraceCommand, TheSameHopsAsTraceroute) {
  if (FindProgram("traceroute").empty()) GTEST_SKIP() << "traceroute is not installed";
  const std::string ip = GetParam();
  const auto expected = HopsOf("traceroute -n -I -N 1 -q 1 -w 0.3 -m 5 " + ip);
  const std::string command = kCommand + " trace -n -q 1 -t 0.3 -m 5 " + ip;
  EXPECT_EQ(HopsOf(command), expected);
  ASSERT_TRUE(OwnNetwork::AllowEcho());
  EXPECT_EQ(HopsOf(command), expected) << "with a datagram socket";
}

// Near, far, unreachable, prohibited, a black hole, no route there.
INSTANTIATE_TEST_SUITE_P(Ways, TraceCommand,
                         testing::Values("10.1.0.2", "10.3.0.2", "10.9.1.1", "10.9.2.1", "10.9.3.1",
                                         "10.9.4.1", "fd01::2", "fd03::2", "fd09:0:1::1",
                                         "fd09:0:2::1", "fd09:0:3::1", "fd09:0:4::1"),
                         [](const auto& way) { return "Way" + std::to_string(way.index); });

// Whatever the probes are.
TEST_F(BesideTools, TheSameReportAsMtr) {
  if (FindProgram("mtr").empty()) GTEST_SKIP() << "mtr is not installed";
  const std::pair<std::string, std::string> probes[] = {
      {"", ""}, {"--udp ", "--udp "}, {"--tcp -P 9 ", "--tcp --port 9 "}};
  for (const char* ip : {"10.1.0.2", "10.3.0.2", "fd03::2"})
    for (const auto& [mtr, ours] : probes)
      EXPECT_EQ(HopsOf(kCommand + " trace --report -n -c 3 -i 0.2 -t 1 " + ours + ip, true),
                HopsOf("mtr --report -w -n -c 3 -i 0.2 -G 1 " + mtr + ip, true))
          << ip << ours;
}

TEST_F(BesideTools, TheSameHostsAsFping) {
  if (FindProgram("fping").empty()) GTEST_SKIP() << "fping is not installed";
  for (const std::string network : {"10.3.0.0/29", "10.1.0.0/30"}) {
    const std::string expected = OwnNetwork::Read("fping -a -q -r 0 -t 300 -g " + network);
    EXPECT_FALSE(expected.empty());
    EXPECT_EQ(OwnNetwork::Read(kCommand + " ping --alive -c 1 -w 0.3 " + network), expected);
  }
}

class Watch : public BesideTools, protected WatchpostClsEvents {
 protected:
  // The clock moves a second at a time, but not while a round is running.
  bool Until(const std::function<bool()>& done) {
    const auto limit = std::chrono::steady_clock::now() + 30s;
    while (!done()) {
      if (std::chrono::steady_clock::now() > limit) return false;
      if (post_.GetStatus() == WatchpostStarted) AdvanceClockForTests(1s);
      MessageLoop::ForThisThread().PumpMessages();
    }
    return true;
  }
  bool IsUp(std::int32_t host) const { return post_.HostAt(host).State == WatchedUp; }

  void Alert(const std::string& /*Protocol*/, std::int32_t /*Index*/, bool SuccessMsg,
             const std::string& HostName, const std::string& /*Host*/,
             const std::string& ErrorDump) override {
    alerts_ += HostName + (SuccessMsg ? " up\n" : " down: " + ErrorDump + "\n");
  }

  TemporaryFolder folder_;
  WatchpostCls post_;
  std::string alerts_;
};

TEST_F(Watch, ACableIsPulledAndPutBack) {
  WriteFile(folder_ / "watch.ini",
            "[Settings]\nDownCycle=3\nUpCycle=2\n[DownActions]\n1=log\n[UpActions]\n1=log\n"
            "[HostNames]\nnear=10.1.0.2|Ping\nfar=10.3.0.2|Ping\n");
  post_.Events(this);
  post_.SettingsName(folder_ / "watch.ini");
  ASSERT_TRUE(post_.StartObservation());
  EXPECT_TRUE(Until([&] { return IsUp(0) && IsUp(1); }));

  ASSERT_TRUE(hosts_.IpAt(hosts_.R2(), "link set toB down\n"));
  EXPECT_TRUE(Until([&] { return !IsUp(1); }));
  EXPECT_EQ(alerts_, "far down: Destination Network Not Reachable\n");
  EXPECT_TRUE(IsUp(0)) << "of this side";

  ASSERT_TRUE(hosts_.IpAt(hosts_.R2(), "link set toB up\n"));
  EXPECT_TRUE(Until([&] { return IsUp(1); }));
  EXPECT_EQ(alerts_, "far down: Destination Network Not Reachable\nfar up\n");
}

}  // namespace
}  // namespace netro::interop
