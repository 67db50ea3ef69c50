// Echoes beside the program ping, in network namespaces: the same answers, from the same hosts.

#include <gtest/gtest.h>
#include <netro/EchoCls.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ServerProcess.h"
#include "tests/EchoNetworks.h"
#include "tests/SocketTestKit.h"

namespace netro::interop {
namespace {

class Outcomes : public EchoClsEvents {
 public:
  void Reply(std::int32_t /*Id*/, const std::string& Host, std::int32_t /*MicroSeconds*/,
             std::int32_t Status, std::int32_t TTL) override {
    host = Host;
    ttl = TTL;
    statuses.push_back(Status);
  }
  std::string host;
  std::int32_t ttl = -1;
  std::vector<std::int32_t> statuses;
};

// The kind of socket that the system grants, and the family of the hosts that are asked.
struct Way {
  EchoSocketEnum kind;
  bool v6;
};

class BesidePing : public testing::TestWithParam<Way> {
 protected:
  void SetUp() override {
    if (!hosts_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    ASSERT_TRUE(GetParam().kind == EchoSocketRaw || OwnNetwork::AllowEcho());
    ASSERT_TRUE(FourHosts::AwaitWay());
  }

  Outcomes Ask(const std::string& ip) {
    EchoCls echo;
    Outcomes outcomes;
    echo.Events(&outcomes);
    EXPECT_NE(echo.Send(ip, 0, 56), 0);
    EXPECT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
    EXPECT_EQ(echo.SocketUsed(), GetParam().kind);
    return outcomes;
  }

  std::string Family() const { return GetParam().v6 ? " -6 " : " -4 "; }

  FourHosts hosts_;
};

// The number behind `name` in ping's output.
double NumberBehind(const std::string& name, const std::string& output) {
  const auto at = output.find(name);
  return at == std::string::npos ? -1 : std::atof(output.c_str() + at + name.size());
}

TEST_P(BesidePing, TheSameAnswers) {
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

INSTANTIATE_TEST_SUITE_P(Sockets, BesidePing,
                         testing::Values(Way{EchoSocketRaw, false}, Way{EchoSocketDatagram, false},
                                         Way{EchoSocketRaw, true}, Way{EchoSocketDatagram, true}),
                         [](const testing::TestParamInfo<Way>& way) {
                           return std::string(way.param.kind == EchoSocketRaw ? "Raw"
                                                                              : "Datagram") +
                                  (way.param.v6 ? "IPv6" : "");
                         });

}  // namespace
}  // namespace netro::interop
