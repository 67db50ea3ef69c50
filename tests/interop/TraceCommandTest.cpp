// The commands "netro trace" and "netro ping" beside the programs traceroute, mtr and fping, in
// network namespaces: the same hops, the same loss, the same hosts that are there.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ServerProcess.h"
#include "tests/EchoNetworks.h"

namespace netro::interop {
namespace {

// "3 10.3.0.2" for each line of a table that begins with the number of a hop and its host.
std::vector<std::string> HopsOf(const std::string& command) {
  std::istringstream lines(OwnNetwork::Read(command));
  std::vector<std::string> hops;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    int number = 0;
    std::string host;
    if (words >> number >> host) hops.push_back(std::to_string(number) + " " + host);
  }
  return hops;
}

class TraceCommand : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (FindProgram("traceroute").empty()) GTEST_SKIP() << "traceroute is not installed";
    if (!hosts_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    ASSERT_TRUE(FourHosts::AwaitWay());
  }

  FourHosts hosts_;
};

// One probe at a time and for each hop: a router of this system refuses five times at once, then
// once a second.
TEST_P(TraceCommand, TheSameHopsAsTraceroute) {
  const std::string ip = GetParam();
  const auto expected = HopsOf("traceroute -n -I -N 1 -q 1 -w 0.3 -m 5 " + ip);
  EXPECT_FALSE(expected.empty());
  const std::string command = std::string(NETRO_COMMAND) + " trace -n -q 1 -t 0.3 -m 5 " + ip;
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

// "3 10.3.0.2 0.0% 3": a hop, its host, its loss and what it was sent, which both tables have.
std::vector<std::string> ReportOf(const std::string& command) {
  std::istringstream lines(OwnNetwork::Read(command));
  std::vector<std::string> hops;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    int number = 0, sent = 0;
    std::string host, loss;
    if (!(words >> number)) continue;
    if (words.peek() == '.') words >> host;  // of mtr's "3.|--"
    if (words >> host >> loss >> sent) {
      hops.push_back(std::to_string(number) + " " + host + " " + loss + " " + std::to_string(sent));
    }
  }
  return hops;
}

class FourHostsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!hosts_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    ASSERT_TRUE(FourHosts::AwaitWay());
  }

  FourHosts hosts_;
};

// Whatever the probes are.
TEST_F(FourHostsTest, TheSameReportAsMtr) {
  if (FindProgram("mtr").empty()) GTEST_SKIP() << "mtr is not installed";
  const struct {
    const char* mtr;
    const char* ours;
  } probes[] = {{"", ""}, {"--udp", "--udp"}, {"--tcp -P 9", "--tcp --port 9"}};
  for (const char* ip : {"10.1.0.2", "10.3.0.2", "fd03::2"}) {
    for (const auto& probe : probes) {
      const auto expected =
          ReportOf(std::string("mtr --report -w -n -c 3 -i 0.2 -G 1 ") + probe.mtr + " " + ip);
      EXPECT_FALSE(expected.empty());
      EXPECT_EQ(ReportOf(std::string(NETRO_COMMAND) + " trace --report -n -c 3 -i 0.2 -t 1 " +
                         probe.ours + " " + ip),
                expected)
          << ip << probe.ours;
    }
  }
}

TEST_F(FourHostsTest, TheSameHostsAsFping) {
  if (FindProgram("fping").empty()) GTEST_SKIP() << "fping is not installed";
  for (const char* network : {"10.3.0.0/29", "10.1.0.0/30"}) {
    const std::string expected =
        OwnNetwork::Read(std::string("fping -a -q -r 0 -t 300 -g ") + network);
    EXPECT_FALSE(expected.empty());
    EXPECT_EQ(OwnNetwork::Read(std::string(NETRO_COMMAND) + " ping --alive -c 1 -w 0.3 " + network),
              expected);
  }
}

}  // namespace
}  // namespace netro::interop
