// Echoes and trace routes beside the programs ping and traceroute, in network namespaces: the same
// answers, from the same hosts. What needs a packet filter uses nft.

#include <gtest/gtest.h>
#include <netro/EchoCls.h>
#include <netro/ICMPCls.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ServerProcess.h"
#include "tests/EchoNetworks.h"
#include "tests/SocketTestKit.h"

namespace netro::interop {
namespace {

class Hops : public ICMPClsEvents {
 public:
  void Hop(const std::string& Host, std::int32_t /*RoundTripTime*/, std::int32_t Status,
           bool& /*Cancel*/) override {
    hosts.push_back(Host);
    statuses.push_back(Status);
  }
  std::vector<std::string> hosts;
  std::vector<std::int32_t> statuses;
};

// The last outcome, and those of all.
class Outcomes : public EchoClsEvents {
 public:
  void Reply(std::int32_t /*Id*/, const std::string& Host, std::int32_t MicroSeconds,
             std::int32_t Status, std::int32_t TTL) override {
    host = Host;
    ttl = TTL;
    microSeconds.push_back(MicroSeconds);
    statuses.push_back(Status);
  }
  std::string host;
  std::int32_t ttl = -1;
  std::vector<std::int32_t> microSeconds;
  std::vector<std::int32_t> statuses;
};

class PingAndTraceroute : public testing::TestWithParam<EchoSocketEnum> {
 protected:
  void SetUp() override {
    if (!hosts_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    ASSERT_TRUE(GetParam() == EchoSocketRaw || OwnNetwork::AllowEcho());
    ASSERT_TRUE(FourHosts::AwaitWay());
  }

  // Sends `count` requests, one after the other.
  Outcomes Ask(const std::string& ip, int count = 1) {
    EchoCls echo;
    Outcomes outcomes;
    echo.Events(&outcomes);
    for (int i = 0; i < count; ++i) {
      EXPECT_NE(echo.Send(ip, 0, 56), 0);
      EXPECT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
    }
    EXPECT_EQ(echo.SocketUsed(), GetParam());
    return outcomes;
  }

  // Runs nft on B with these commands.
  bool FilterAtB(const std::string& rules) {
    hosts_.B().Enter();
    const bool done = OwnNetwork::Feed(
        "nft -f -", "add table t\nadd chain t c { type filter hook input priority 0; }\n" + rules);
    return hosts_.A().Enter() && done;
  }

  FourHosts hosts_;
};

// The hosts in traceroute's output, one a line; an empty one for a star.
std::vector<std::string> HopsOfTraceroute(const std::string& ip, const std::string& most) {
  std::istringstream lines(OwnNetwork::Read("traceroute -n -I -q 1 -w 0.3 -m " + most + " " + ip));
  std::vector<std::string> hosts;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    int number = 0;
    std::string host;
    if (words >> number >> host) hosts.push_back(host == "*" ? "" : host);
  }
  return hosts;
}

// The number behind `name` in ping's output.
double NumberBehind(const std::string& name, const std::string& output) {
  const auto at = output.find(name);
  return at == std::string::npos ? -1 : std::atof(output.c_str() + at + name.size());
}

TEST_P(PingAndTraceroute, TheSameHops) {
  if (FindProgram("traceroute").empty()) GTEST_SKIP() << "traceroute is not installed";
  for (const std::string ip : {"10.1.0.2", "10.2.0.2", "10.3.0.2", "10.9.3.1"}) {
    ICMPCls icmp;
    Hops hops;
    icmp.Events(&hops);
    icmp.TRTimeout(300);
    icmp.TRMaxHops(5);
    EXPECT_TRUE(icmp.TraceRt(ip));
    EXPECT_EQ(hops.hosts, HopsOfTraceroute(ip, "5")) << ip;
  }
}

TEST_P(PingAndTraceroute, TheSameAnswers) {
  if (FindProgram("ping").empty()) GTEST_SKIP() << "ping is not installed";
  struct {
    const char* ip;
    const char* from;
    const char* text;
    std::int32_t status;
  } const cases[] = {
      {"10.3.0.2", "10.3.0.2", "64 bytes from 10.3.0.2: icmp_seq=1 ttl=62 ", 0},
      {"10.9.1.1", "10.2.0.2", "From 10.2.0.2 icmp_seq=1 Destination Host Unreachable", 11003},
      {"10.9.2.1", "10.2.0.2", "From 10.2.0.2 icmp_seq=1 Packet filtered", 11003},
  };
  for (const auto& c : cases) {
    const Outcomes outcomes = Ask(c.ip);
    EXPECT_EQ(outcomes.statuses, std::vector{c.status}) << c.ip;
    EXPECT_EQ(outcomes.host, c.from) << c.ip;
    const std::string output = OwnNetwork::Read("ping -n -c 1 -w 5 " + std::string(c.ip));
    EXPECT_NE(output.find(c.text), std::string::npos) << output;
    if (c.status == 0) {
      EXPECT_EQ(outcomes.ttl, NumberBehind(" ttl=", output));
    }
  }
}

// Both take the time from the system's stamps; the least of many is the same but for a little.
TEST_P(PingAndTraceroute, TheSameRoundTrips) {
  if (FindProgram("ping").empty()) GTEST_SKIP() << "ping is not installed";
  for (const std::string ip : {"127.0.0.1", "10.3.0.2"}) {
    const Outcomes outcomes = Ask(ip, 200);
    ASSERT_EQ(outcomes.microSeconds.size(), 200u);
    const auto least = *std::ranges::min_element(outcomes.microSeconds);
    const std::string output = OwnNetwork::Read("ping -n -q -c 200 -i 0.002 " + ip);
    const double theirs = NumberBehind("mdev = ", output) * 1000;
    EXPECT_GE(theirs, 0) << output;
    EXPECT_NEAR(least, theirs, 20) << ip;
  }
}

TEST_P(PingAndTraceroute, RefusalsOfAFilter) {
  if (FindProgram("nft").empty()) GTEST_SKIP() << "nft is not installed";
  struct {
    const char* refusal;
    std::int32_t status;
  } const cases[] = {
      {"net-unreachable", 11002},  {"host-unreachable", 11003}, {"prot-unreachable", 11004},
      {"port-unreachable", 11005}, {"net-prohibited", 11002},   {"host-prohibited", 11003},
      {"admin-prohibited", 11003},
  };
  for (const auto& c : cases) {
    if (!FilterAtB("flush chain t c\nadd rule t c icmp type echo-request reject with icmp type " +
                   std::string(c.refusal) + "\n")) {
      GTEST_SKIP() << "nft cannot filter here";
    }
    const Outcomes outcomes = Ask("10.3.0.2");
    EXPECT_EQ(outcomes.statuses, std::vector{c.status}) << c.refusal;
    EXPECT_EQ(outcomes.host, "10.3.0.2") << c.refusal;
  }
}

TEST_P(PingAndTraceroute, LossIsCounted) {
  if (FindProgram("nft").empty()) GTEST_SKIP() << "nft is not installed";
  if (!FilterAtB("add rule t c icmp type echo-request numgen inc mod 4 0 drop\n")) {
    GTEST_SKIP() << "nft cannot filter here";
  }
  EchoCls echo;
  Outcomes outcomes;
  echo.Events(&outcomes);
  for (int i = 0; i < 100; ++i) echo.Send("10.3.0.2", 0, 32, 500);
  ASSERT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
  EXPECT_EQ(std::ranges::count(outcomes.statuses, 0), 75);
  EXPECT_EQ(std::ranges::count(outcomes.statuses, 11010), 25);
}

INSTANTIATE_TEST_SUITE_P(Sockets, PingAndTraceroute,
                         testing::Values(EchoSocketRaw, EchoSocketDatagram),
                         [](const testing::TestParamInfo<EchoSocketEnum>& kind) {
                           return kind.param == EchoSocketRaw ? "Raw" : "Datagram";
                         });

}  // namespace
}  // namespace netro::interop
