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

// The kind of socket that the system grants, and the family of the hosts that are asked.
struct Way {
  EchoSocketEnum kind;
  bool v6;
};

class PingAndTraceroute : public testing::TestWithParam<Way> {
 protected:
  void SetUp() override {
    if (!hosts_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    ASSERT_TRUE(GetParam().kind == EchoSocketRaw || OwnNetwork::AllowEcho());
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
    EXPECT_EQ(echo.SocketUsed(), GetParam().kind);
    return outcomes;
  }

  // Runs nft on B with these commands.
  bool FilterAtB(const std::string& rules) {
    hosts_.B().Enter();
    const bool done = OwnNetwork::Feed(
        "nft -f -",
        "add table inet t\nadd chain inet t c { type filter hook input priority 0; }\n" + rules);
    return hosts_.A().Enter() && done;
  }

  // The address of the same host in the family that is asked.
  std::string Host(const char* v4, const char* v6) const { return GetParam().v6 ? v6 : v4; }
  std::string Echoes() const {
    return GetParam().v6 ? "icmpv6 type echo-request" : "icmp type echo-request";
  }
  std::string Family() const { return GetParam().v6 ? " -6 " : " -4 "; }
  const std::string b_ = Host("10.3.0.2", "fd03::2");

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
  for (const std::string& ip : {Host("10.1.0.2", "fd01::2"), Host("10.2.0.2", "fd02::2"), b_,
                                Host("10.9.3.1", "fd09:0:3::1")}) {
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
    bool v6;
    const char* ip;
    const char* from;
    const char* text;
    std::int32_t status;
  } const cases[] = {
      {false, "10.3.0.2", "10.3.0.2", "64 bytes from 10.3.0.2: icmp_seq=1 ttl=62 ", 0},
      {false, "10.9.1.1", "10.2.0.2", "From 10.2.0.2 icmp_seq=1 Destination Host Unreachable",
       11003},
      {false, "10.9.2.1", "10.2.0.2", "From 10.2.0.2 icmp_seq=1 Packet filtered", 11003},
      {true, "fd03::2", "fd03::2", "64 bytes from fd03::2: icmp_seq=1 ttl=62 ", 0},
      {true, "fd09:0:1::1", "fd02::2", "From fd02::2 icmp_seq=1 Destination unreachable: No route",
       11002},
      {true, "fd09:0:2::1", "fd02::2",
       "From fd02::2 icmp_seq=1 Destination unreachable: Administratively prohibited", 11003},
  };
  for (const auto& c : cases) {
    if (c.v6 != GetParam().v6) continue;
    const Outcomes outcomes = Ask(c.ip);
    EXPECT_EQ(outcomes.statuses, std::vector{c.status}) << c.ip;
    EXPECT_EQ(outcomes.host, c.from) << c.ip;
    const std::string output = OwnNetwork::Read("ping -n -c 1 -w 5" + Family() + c.ip);
    EXPECT_NE(output.find(c.text), std::string::npos) << output;
    if (c.status == 0) {
      EXPECT_EQ(outcomes.ttl, NumberBehind(" ttl=", output));
    }
  }
}

// Both take the time from the system's stamps; the least of many is the same but for a little.
TEST_P(PingAndTraceroute, TheSameRoundTrips) {
  if (FindProgram("ping").empty()) GTEST_SKIP() << "ping is not installed";
  for (const std::string& ip : {Host("127.0.0.1", "::1"), b_}) {
    const Outcomes outcomes = Ask(ip, 200);
    ASSERT_EQ(outcomes.microSeconds.size(), 200u);
    const auto least = *std::ranges::min_element(outcomes.microSeconds);
    const std::string output = OwnNetwork::Read("ping -n -q -c 200 -i 0.002" + Family() + ip);
    const double theirs = NumberBehind("mdev = ", output) * 1000;
    EXPECT_GE(theirs, 0) << output;
    EXPECT_NEAR(least, theirs, 20) << ip;
  }
}

TEST_P(PingAndTraceroute, RefusalsOfAFilter) {
  if (FindProgram("nft").empty()) GTEST_SKIP() << "nft is not installed";
  struct {
    bool v6;
    const char* refusal;
    std::int32_t status;
  } const cases[] = {
      {false, "net-unreachable", 11002},  {false, "host-unreachable", 11003},
      {false, "prot-unreachable", 11004}, {false, "port-unreachable", 11005},
      {false, "net-prohibited", 11002},   {false, "host-prohibited", 11003},
      {false, "admin-prohibited", 11003}, {true, "no-route", 11002},
      {true, "admin-prohibited", 11003},  {true, "addr-unreachable", 11003},
      {true, "port-unreachable", 11005},  {true, "policy-fail", 11003},
      {true, "reject-route", 11002},
  };
  for (const auto& c : cases) {
    if (c.v6 != GetParam().v6) continue;
    if (!FilterAtB("flush chain inet t c\nadd rule inet t c " + Echoes() + " reject with " +
                   (c.v6 ? "icmpv6 " : "icmp ") + c.refusal + "\n")) {
      GTEST_SKIP() << "nft cannot filter here";
    }
    const Outcomes outcomes = Ask(b_);
    EXPECT_EQ(outcomes.statuses, std::vector{c.status}) << c.refusal;
    EXPECT_EQ(outcomes.host, b_) << c.refusal;
  }
}

TEST_P(PingAndTraceroute, LossIsCounted) {
  if (FindProgram("nft").empty()) GTEST_SKIP() << "nft is not installed";
  if (!FilterAtB("add rule inet t c " + Echoes() + " numgen inc mod 4 0 drop\n")) {
    GTEST_SKIP() << "nft cannot filter here";
  }
  EchoCls echo;
  Outcomes outcomes;
  echo.Events(&outcomes);
  for (int i = 0; i < 100; ++i) echo.Send(b_, 0, 32, 500);
  ASSERT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
  EXPECT_EQ(std::ranges::count(outcomes.statuses, 0), 75);
  EXPECT_EQ(std::ranges::count(outcomes.statuses, 11010), 25);
}

INSTANTIATE_TEST_SUITE_P(Sockets, PingAndTraceroute,
                         testing::Values(Way{EchoSocketRaw, false}, Way{EchoSocketDatagram, false},
                                         Way{EchoSocketRaw, true}, Way{EchoSocketDatagram, true}),
                         [](const testing::TestParamInfo<Way>& way) {
                           return std::string(way.param.kind == EchoSocketRaw ? "Raw"
                                                                              : "Datagram") +
                                  (way.param.v6 ? "IPv6" : "");
                         });

}  // namespace
}  // namespace netro::interop
