// Echo sockets of both kinds in network namespaces: a scripted peer that answers with every message
// there is, right and wrong; and four hosts in a row. Skipped where the system has no namespaces
// for this user; the test low_ports then runs them.

#include <gtest/gtest.h>
#include <netro/EchoCls.h>
#include <netro/ICMPCls.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "EchoNetworks.h"
#include "SocketTestKit.h"
#include "peers/EchoPeer.h"
#include "peers/IcmpBytes.h"

namespace netro {
namespace {

using peers::EchoPeer;
using Packets = std::vector<std::string>;

// Takes down what each reply tells.
class Outcomes : public EchoClsEvents {
 public:
  void Reply(std::int32_t Id, const std::string& Host, std::int32_t /*MicroSeconds*/,
             std::int32_t Status, std::int32_t TTL) override {
    seen.push_back({Host, Status, TTL, Id});
  }

  struct Outcome {
    std::string host;
    std::int32_t status;
    std::int32_t ttl;
    std::int32_t id = 0;
  };
  std::vector<Outcome> seen;
};

class Hops : public ICMPClsEvents {
 public:
  void Hop(const std::string& Host, std::int32_t /*RoundTripTime*/, std::int32_t Status,
           bool& Cancel) override {
    seen.emplace_back(Host, Status);
    if (seen.size() == cancelAt) Cancel = true;
  }

  std::vector<std::pair<std::string, std::int32_t>> seen;
  std::size_t cancelAt = 0;
};

// The parameter: the kind of socket that the system grants.
class BothKinds : public testing::TestWithParam<EchoSocketEnum> {
 protected:
  // Sends one request and waits for its outcome.
  Outcomes::Outcome Ask(const std::string& ip, std::int32_t ttl = 0, std::int32_t size = 32,
                        std::int32_t timeout = 5000) {
    EchoCls echo;
    Outcomes outcomes;
    echo.Events(&outcomes);
    EXPECT_NE(echo.Send(ip, ttl, size, timeout), 0) << echo.LastErrMsg();
    EXPECT_EQ(echo.SocketUsed(), GetParam());
    EXPECT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
    EXPECT_EQ(outcomes.seen.size(), 1u);
    return outcomes.seen.empty() ? Outcomes::Outcome{"none", -1, -1} : outcomes.seen[0];
  }

  bool GrantKind() const { return GetParam() == EchoSocketRaw || OwnNetwork::AllowEcho(); }
};

std::string KindName(const testing::TestParamInfo<EchoSocketEnum>& kind) {
  return kind.param == EchoSocketRaw ? "Raw" : "Datagram";
}

// --- a scripted peer on loopback -----------------------------------------------------------------

class EchoPeerTest : public BothKinds {
 protected:
  void SetUp() override {
    if (!network_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    ASSERT_TRUE(OwnNetwork::Set("icmp_echo_ignore_all", "1") && GrantKind());
  }

  OwnNetwork network_;
};

TEST_P(EchoPeerTest, RequestsAndReplies) {
  EchoPeer peer([](const EchoPeer::Request& request) { return Packets{EchoPeer::Reply(request)}; });
  for (const std::int32_t size : {0, 1, 8, 32, 1000, 65'507}) {
    const auto outcome = Ask("127.0.0.5", 77, size);
    EXPECT_EQ(outcome.host, "127.0.0.5");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.ttl, 64);
    const auto requests = peer.Received();
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requests.back().ttl, 77);
    EXPECT_EQ(requests.back().destination, "127.0.0.5");
    EXPECT_EQ(requests.back().data.size(), static_cast<std::size_t>(size));
  }
}

TEST_P(EchoPeerTest, EveryErrorHasItsStatus) {
  struct {
    int type;
    int code;
    std::int32_t status;
  } const cases[] = {
      {3, 0, 11002},  {3, 1, 11003},  {3, 2, 11004}, {3, 3, 11005},  {3, 4, 11009},  {3, 5, 11012},
      {3, 6, 11002},  {3, 7, 11003},  {3, 8, 11003}, {3, 9, 11002},  {3, 10, 11003}, {3, 11, 11002},
      {3, 12, 11003}, {3, 13, 11003}, {4, 0, 11016}, {11, 0, 11013}, {11, 1, 11014}, {12, 0, 11015},
  };
  for (const auto& c : cases) {
    // A datagram socket does not learn of reassembly: the system keeps that to itself.
    if (c.status == 11014 && GetParam() == EchoSocketDatagram) continue;
    EchoPeer peer([&](const EchoPeer::Request& request) {
      return Packets{EchoPeer::Error(c.type, c.code, "127.0.0.99", request)};
    });
    const auto outcome = Ask("127.0.1." + std::to_string(c.type * 16 + c.code));
    EXPECT_EQ(outcome.status, c.status) << c.type << "/" << c.code;
    EXPECT_EQ(outcome.host, "127.0.0.99");
    EXPECT_EQ(outcome.ttl, 64);
  }
}

// Each stranger comes before the right reply, which ends the request with a TTL of its own.
TEST_P(EchoPeerTest, StrangersDoNotCount) {
  using Request = EchoPeer::Request;
  const auto reply = [](const std::string& source, int identifier, int sequence,
                        const std::string& data) {
    peers::IpFields fields;
    fields.source = source;
    fields.destination = "127.0.0.1";
    return peers::IpBytes(fields, peers::EchoMessage(0, identifier, sequence, data));
  };
  struct {
    const char* what;
    std::function<std::string(const Request&)> packet;
  } const strangers[] = {
      {"another source",
       [&](const Request& r) { return reply("127.0.0.9", r.identifier, r.sequence, r.data); }},
      {"another identifier",
       [&](const Request& r) {
         return reply(r.destination, r.identifier ^ 1, r.sequence, r.data);
       }},
      {"another sequence number",
       [&](const Request& r) {
         return reply(r.destination, r.identifier, r.sequence ^ 1, r.data);
       }},
      {"other data",
       [&](const Request& r) {
         std::string data = r.data;
         data.back() = static_cast<char>(data.back() ^ 1);
         return reply(r.destination, r.identifier, r.sequence, data);
       }},
      {"less data",
       [&](const Request& r) {
         return reply(r.destination, r.identifier, r.sequence, r.data.substr(1));
       }},
      {"more data",
       [&](const Request& r) {
         return reply(r.destination, r.identifier, r.sequence, r.data + r.data);
       }},
      {"a wrong checksum",
       [](const Request& r) {
         std::string packet = EchoPeer::Reply(r);
         packet[22] = static_cast<char>(packet[22] ^ 1);
         return packet;
       }},
      {"a redirect", [](const Request& r) { return EchoPeer::Error(5, 1, "127.0.0.9", r); }},
      {"an error about another host",
       [](const Request& r) {
         Request other = r;
         other.packet[19] = static_cast<char>(other.packet[19] ^ 1);
         return EchoPeer::Error(3, 1, "127.0.0.9", other);
       }},
      {"an error about another request",
       [](const Request& r) {
         Request other = r;
         other.packet[27] = static_cast<char>(other.packet[27] ^ 1);
         return EchoPeer::Error(3, 1, "127.0.0.9", other);
       }},
      {"an error about another program's request",
       [](const Request& r) {
         Request other = r;
         other.packet[25] = static_cast<char>(other.packet[25] ^ 1);
         return EchoPeer::Error(3, 1, "127.0.0.9", other);
       }},
      {"an error that quotes too little",
       [](const Request& r) {
         Request other = r;
         other.packet.resize(20 + 7);
         return EchoPeer::Error(3, 1, "127.0.0.9", other);
       }},
  };
  for (const auto& stranger : strangers) {
    EchoPeer peer([&](const Request& request) {
      std::string right = EchoPeer::Reply(request);
      right[8] = 99;
      return Packets{stranger.packet(request), right};
    });
    const auto outcome = Ask("127.0.0.5");
    EXPECT_EQ(outcome.status, 0) << stranger.what;
    EXPECT_EQ(outcome.host, "127.0.0.5") << stranger.what;
    EXPECT_EQ(outcome.ttl, 99) << stranger.what;
  }
}

TEST_P(EchoPeerTest, OptionsAreSteppedOver) {
  const std::string options(12, '\x01');
  EchoPeer peer([&](const EchoPeer::Request& request) {
    std::string quoted = request.packet;
    quoted.insert(20, options);
    quoted[0] = 0x48;
    peers::IpFields fields;
    fields.source = "127.0.0.99";
    fields.destination = "127.0.0.1";
    fields.options = options;
    return Packets{peers::IpBytes(fields, peers::IcmpErrorMessage(11, 0, quoted))};
  });
  const auto outcome = Ask("127.0.0.5");
  EXPECT_EQ(outcome.status, 11013);
  EXPECT_EQ(outcome.host, "127.0.0.99");
}

TEST_P(EchoPeerTest, OneReplyEach) {
  EchoPeer peer([&](const EchoPeer::Request& request) {
    return Packets{EchoPeer::Reply(request), EchoPeer::Reply(request),
                   EchoPeer::Error(3, 1, "127.0.0.9", request)};
  });
  EchoCls echo;
  Outcomes outcomes;
  echo.Events(&outcomes);
  for (int i = 1; i <= 100; ++i) echo.Send("127.0.0." + std::to_string(i));
  ASSERT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
  for (int i = 1; i <= 100; ++i) EXPECT_EQ(Ask("127.0.1.1").status, 0);
  MessageLoop::ForThisThread().PumpMessages();
  EXPECT_EQ(outcomes.seen.size(), 100u);
}

// A reply that comes when nobody waits any more is not taken for that of the next request.
TEST_P(EchoPeerTest, LateRepliesAreIgnored) {
  std::string late;
  EchoPeer peer([&](const EchoPeer::Request& request) {
    if (late.empty()) {
      late = EchoPeer::Reply(request);
      return Packets{};
    }
    return Packets{late, EchoPeer::Error(3, 1, "127.0.0.9", request)};
  });
  EchoCls echo;
  Outcomes outcomes;
  echo.Events(&outcomes);
  const std::int32_t first = echo.Send("127.0.0.5", 0, 32, 60'000);
  ASSERT_TRUE(PumpUntil([&] { return peer.Received().size() == 1; }));
  echo.Cancel(first);
  echo.Send("127.0.0.5");
  ASSERT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
  ASSERT_EQ(outcomes.seen.size(), 1u);
  EXPECT_EQ(outcomes.seen[0].status, 11003);
}

// Errors that come while others are sent are told by the system at the next call, whichever it is.
TEST_P(EchoPeerTest, ErrorsOfSomeDoNotStopTheOthers) {
  EchoPeer peer([](const EchoPeer::Request& request) {
    return Packets{request.sequence % 2 == 0 ? EchoPeer::Reply(request)
                                             : EchoPeer::Error(3, 1, "127.0.0.99", request)};
  });
  EchoCls echo;
  Outcomes outcomes;
  echo.Events(&outcomes);
  for (int i = 0; i < 200; ++i) {
    echo.Send("127.0.2." + std::to_string(i + 1));
    ASSERT_TRUE(
        PumpUntil([&] { return peer.Received().size() == static_cast<std::size_t>(i) + 1; }));
  }
  ASSERT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
  std::size_t replies = 0, errors = 0;
  for (const auto& outcome : outcomes.seen) {
    replies += outcome.status == 0;
    errors += outcome.status == 11003;
  }
  EXPECT_EQ(replies, 100u);
  EXPECT_EQ(errors, 100u);
}

TEST_P(EchoPeerTest, AnErrorEndsThePing) {
  EchoPeer peer([](const EchoPeer::Request& request) {
    return Packets{EchoPeer::Error(3, 3, "127.0.0.99", request)};
  });
  ICMPCls icmp;
  EXPECT_EQ(icmp.PingHost("127.0.0.5"), -11005);
  EXPECT_EQ(icmp.LastErr(), -11005);
  EXPECT_EQ(icmp.LastErrMsg(), "Destination Port Not Reachable");
}

// The destination itself may answer with an error: that is where the way ends.
TEST_P(EchoPeerTest, ATraceEndsAtTheDestination) {
  EchoPeer::Request second;
  EchoPeer peer([&](const EchoPeer::Request& request) {
    if (request.ttl == 1) return Packets{EchoPeer::Error(11, 0, "127.0.0.91", request)};
    if (request.ttl == 2) {
      second = request;
      return Packets{};
    }
    if (request.ttl == 3) return Packets{EchoPeer::Error(11, 0, "127.0.0.92", second)};  // too late
    if (request.ttl == 4) return Packets{EchoPeer::Error(3, 13, "127.0.0.94", request)};
    return Packets{EchoPeer::Error(3, 2, request.destination, request)};
  });
  ICMPCls icmp;
  Hops hops;
  icmp.Events(&hops);
  icmp.TRTimeout(200);
  EXPECT_TRUE(icmp.TraceRt("127.0.0.5"));
  const std::vector<std::pair<std::string, std::int32_t>> expected = {
      {"127.0.0.91", 11013}, {"", 11010}, {"", 11010}, {"127.0.0.94", 11003}, {"127.0.0.5", 11004}};
  EXPECT_EQ(hops.seen, expected);
  EXPECT_EQ(icmp.TRHopCount(), 5);

  const std::size_t before = peer.Received().size();
  hops.seen.clear();
  hops.cancelAt = 1;
  EXPECT_FALSE(icmp.TraceRt("127.0.0.5"));
  EXPECT_EQ(icmp.LastErr(), 9999);
  EXPECT_TRUE(icmp.TRCanceled());
  EXPECT_EQ(peer.Received().size(), before + 1) << "no further probe";
}

INSTANTIATE_TEST_SUITE_P(EchoNetwork, EchoPeerTest,
                         testing::Values(EchoSocketRaw, EchoSocketDatagram), KindName);

// --- four hosts in a row -------------------------------------------------------------------------

class EchoRoute : public BothKinds {
 protected:
  void SetUp() override {
    if (!hosts_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    ASSERT_TRUE(GrantKind() && FourHosts::AwaitWay());
  }

  FourHosts hosts_;
};

TEST_P(EchoRoute, EachRouterIsAHop) {
  const std::vector<std::string> way = {"10.1.0.2", "10.2.0.2", "10.3.0.2"};
  for (std::size_t length = 1; length <= way.size(); ++length) {
    ICMPCls icmp;
    Hops hops;
    icmp.Events(&hops);
    EXPECT_TRUE(icmp.TraceRt(way[length - 1]));
    ASSERT_EQ(hops.seen.size(), length);
    for (std::size_t i = 0; i < length; ++i) {
      EXPECT_EQ(hops.seen[i].first, way[i]);
      EXPECT_EQ(hops.seen[i].second, i + 1 == length ? 0 : 11013);
    }
    EXPECT_EQ(icmp.TRHopCount(), static_cast<std::int32_t>(length));
  }
}

// A router of this system says so five times at once, then once a second.
TEST_P(EchoRoute, RoutersThatGoNoFurther) {
  struct {
    const char* ip;
    const char* from;
    std::int32_t status;
  } const cases[] = {
      {"10.9.1.1", "10.2.0.2", 11003},  // unreachable
      {"10.9.2.1", "10.2.0.2", 11003},  // prohibited
      {"10.9.4.1", "10.2.0.2", 11002},  // no route there
      {"10.8.0.1", "10.1.0.2", 11002},  // nor here
      {"10.9.3.1", "", 11010},          // black hole
  };
  for (const auto& c : cases) {
    const auto outcome = Ask(c.ip, 0, 32, *c.from == 0 ? 200 : 5000);
    EXPECT_EQ(outcome.status, c.status) << c.ip;
    EXPECT_EQ(outcome.host, c.from) << c.ip;
  }
}

TEST_P(EchoRoute, NoRouteOfOurOwn) {
  ASSERT_TRUE(OwnNetwork::Ip(
      "route del default\nroute add unreachable 10.66.0.0/16\nroute add prohibit 10.67.0.0/16\n"));
  EXPECT_EQ(Ask("10.3.0.2").status, 11002);
  EXPECT_EQ(Ask("10.66.0.1").status, 11003);
  EXPECT_EQ(Ask("10.67.0.1").status, 11050);
  EXPECT_EQ(ICMPCls().PingHost("10.3.0.2"), -11002);
  ICMPCls icmp;
  Hops hops;
  icmp.Events(&hops);
  icmp.TRMaxHops(2);
  EXPECT_TRUE(icmp.TraceRt("10.3.0.2"));
  EXPECT_EQ(hops.seen, (std::vector<std::pair<std::string, std::int32_t>>(2, {"", 11002})));
}

TEST_P(EchoRoute, AnAbsentNeighbour) {
  ASSERT_TRUE(OwnNetwork::Set("neigh/toR1/retrans_time_ms", "10"));
  const auto outcome = Ask("10.1.0.77");
  EXPECT_EQ(outcome.status, 11003);
  EXPECT_EQ(outcome.host, "10.1.0.1") << "this host says so itself";
}

// Packets to absent neighbours fill the system's buffer for as long as it asks for them.
TEST_P(EchoRoute, RequestsWaitForRoomInTheBuffer) {
  struct {
    const char* retryMilliSeconds;
    std::int32_t timeout, status;
  } const cases[] = {{"1", 4000, 0}, {"1000", 50, 11006}};
  for (const auto& c : cases) {
    ASSERT_TRUE(OwnNetwork::Set("neigh/toR1/retrans_time_ms", c.retryMilliSeconds));
    EchoCls echo;
    Outcomes outcomes;
    echo.Events(&outcomes);
    for (int i = 3; i < 253; ++i) echo.Send("10.1.0." + std::to_string(i), 0, 60'000, c.timeout);
    const std::int32_t last = echo.Send("10.1.0.2", 0, 60'000, c.timeout);
    const auto isLast = [&](const auto& outcome) { return outcome.id == last; };
    ASSERT_TRUE(PumpUntil([&] { return std::ranges::any_of(outcomes.seen, isLast); }));
    EXPECT_EQ(std::ranges::find_if(outcomes.seen, isLast)->status, c.status);
  }
}

// The first packet that is too long for the way is refused; then the system knows, and cuts.
TEST_P(EchoRoute, ANarrowWay) {
  ASSERT_TRUE(hosts_.IpAt(hosts_.R2(), "link set toB mtu 1000\n"));
  ASSERT_TRUE(hosts_.IpAt(hosts_.B(), "link set toR2 mtu 1000\n"));
  ICMPCls icmp;
  icmp.PingPacketSize(1200);
  EXPECT_EQ(icmp.PingHost("10.3.0.2"), -11009);
  EXPECT_GE(icmp.PingHost("10.3.0.2"), 0);
}

TEST_P(EchoRoute, AllHopsAtOnce) {
  EchoCls echo;
  Outcomes outcomes;
  echo.Events(&outcomes);
  for (std::int32_t ttl = 1; ttl <= 5; ++ttl) {
    for (int probe = 0; probe < 3; ++probe) EXPECT_NE(echo.Send("10.3.0.2", ttl), 0);
  }
  ASSERT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
  std::map<std::tuple<std::string, std::int32_t, std::int32_t>, int> counts;
  for (const auto& outcome : outcomes.seen) ++counts[{outcome.host, outcome.status, outcome.ttl}];
  const decltype(counts) expected = {
      {{"10.1.0.2", 11013, 64}, 3}, {{"10.2.0.2", 11013, 63}, 3}, {{"10.3.0.2", 0, 62}, 9}};
  EXPECT_EQ(counts, expected);
}

INSTANTIATE_TEST_SUITE_P(EchoNetwork, EchoRoute, testing::Values(EchoSocketRaw, EchoSocketDatagram),
                         KindName);

}  // namespace
}  // namespace netro
