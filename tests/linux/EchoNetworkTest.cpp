// Echo sockets of both kinds and both families in network namespaces: a scripted peer that answers
// with every message there is, right and wrong; and four hosts in a row. Skipped where the system
// has no namespaces for this user; the test low_ports then runs them.
#include "EchoKit.h"
#include "EchoNetworks.h"
#include "peers/EchoPeer.h"
#include "peers/IcmpBytes.h"

namespace netro {
namespace {

using Packets = std::vector<std::string>;

struct BothKinds : testing::TestWithParam<EchoWay> {
  // Sends one request and waits for its outcome.
  EchoSeen Ask(const std::string& ip, std::int32_t ttl = 0, std::int32_t size = 32,
               std::int32_t timeout = 5000) {
    EchoClient echo;
    EchoSink& outcomes = echo.sink;
    EXPECT_NE(echo.Send(ip, ttl, size, timeout), 0) << echo.LastErrMsg();
    EXPECT_EQ(echo.SocketUsed(), GetParam().kind);
    EXPECT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
    EXPECT_EQ(outcomes.seen.size(), 1u);
    return outcomes.seen.empty() ? EchoSeen{} : outcomes.seen[0];
  }

  bool GrantKind() const { return GetParam().kind == EchoSocketRaw || OwnNetwork::AllowEcho(); }
};

struct EchoPeerTest : BothKinds {
  void SetUp() override {
    if (!network_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    ASSERT_TRUE(OwnNetwork::Set("icmp_echo_ignore_all", "1") && GrantKind());
    ASSERT_TRUE(OwnNetwork::Set("icmp/echo_ignore_all", "1", "ipv6"));
    ASSERT_TRUE(OwnNetwork::Ip("route add local fd00::/64 dev lo\n"));
  }

  // One of the hosts that the peer answers for.
  std::string Host(int number, int network = 0) const {
    const std::string host = std::to_string(number), net = std::to_string(network);
    if (!GetParam().v6) return "127.0." + net + "." + host;
    return network == 0 ? "fd00::" + host : "fd00::" + net + ":" + host;
  }
  EchoPeer Peer(EchoPeer::Answer answer) const {
    return EchoPeer(std::move(answer), GetParam().v6);
  }
  // The words of a host or a router about a request, of either family alike.
  static std::string Unreachable(const std::string& from, const EchoPeer::Request& request) {
    return EchoPeer::Error(request.IsIPv6() ? 1 : 3, request.IsIPv6() ? 3 : 1, from, request);
  }
  static std::string Expired(const std::string& from, const EchoPeer::Request& request) {
    return EchoPeer::Error(request.IsIPv6() ? 3 : 11, 0, from, request);
  }

  OwnNetwork network_;
};

TEST_P(EchoPeerTest, RequestsAndReplies) {
  auto peer =
      Peer([](const EchoPeer::Request& request) { return Packets{EchoPeer::Reply(request)}; });
  // The peer's packets must fit the interface as they are.
  for (const std::int32_t size : {0, 1, 8, 32, 1000, GetParam().v6 ? 65'488 : 65'507}) {
    const auto outcome = Ask(Host(5), 77, size);
    EXPECT_EQ(outcome.host, Host(5));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.ttl, 64);
    const auto requests = peer.Received();
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requests.back().ttl, 77);
    EXPECT_EQ(requests.back().destination, Host(5));
    EXPECT_EQ(requests.back().data.size(), static_cast<std::size_t>(size));
  }
}

TEST_P(EchoPeerTest, ErrorsOfEveryTypeArrive) {
  const std::tuple<bool, int, int, std::int32_t> cases[] = {
      {false, 3, 0, 11002},  {false, 3, 3, 11005},  {false, 3, 4, 11009}, {false, 3, 13, 11003},
      {false, 11, 0, 11013}, {false, 11, 1, 11014}, {false, 4, 0, 11016}, {false, 12, 0, 11015},
      {true, 1, 0, 11002},   {true, 1, 4, 11005},   {true, 2, 0, 11009},  {true, 3, 0, 11013},
      {true, 3, 1, 11014},   {true, 4, 1, 11004},
  };
  for (const auto& [v6, type, code, status] : cases) {
    if (v6 != GetParam().v6) continue;
    // A datagram socket does not learn of reassembly: the system keeps that to itself.
    if (status == 11014 && !v6 && GetParam().kind == EchoSocketDatagram) continue;
    auto peer = Peer([&](const EchoPeer::Request& request) {
      return Packets{EchoPeer::Error(type, code, Host(99), request)};
    });
    const auto outcome = Ask(Host(type * 16 + code, 1));
    EXPECT_EQ(outcome.status, status) << type << "/" << code;
    EXPECT_EQ(outcome.host, Host(99)) << type << "/" << code;
    EXPECT_EQ(outcome.ttl, 64);
  }
}

// Each stranger comes before the right reply, which ends the request with a TTL of its own.
TEST_P(EchoPeerTest, StrangersDoNotCount) {
  using Request = EchoPeer::Request;
  const auto flip = [](std::string& bytes, std::size_t at) {
    bytes[at] = static_cast<char>(bytes[at] ^ 1);
  };
  const std::string other = Host(9);
  const auto reply = [](const std::function<void(Request&)>& change) {
    return [=](Request request) {
      change(request);
      return EchoPeer::Reply(request);
    };
  };
  const auto error = [&](const std::function<void(Request&)>& change) {
    return [&other, change](Request request) {
      change(request);
      return Unreachable(other, request);
    };
  };
  const auto wrongSum = [&](const Request& request) {
    std::string packet = EchoPeer::Reply(request);
    flip(packet, request.HeaderSize() + 2);
    return packet;
  };
  const auto redirect = [&](const Request& r) {
    return EchoPeer::Error(r.IsIPv6() ? 137 : 5, r.IsIPv6() ? 0 : 1, other, r);
  };
  struct {
    const char* what;
    std::function<std::string(const Request& request)> packet;
  } const strangers[] = {
      {"another source", reply([&](Request& r) { r.destination = other; })},
      {"another identifier", reply([](Request& r) { r.identifier ^= 1; })},
      {"another sequence number", reply([](Request& r) { r.sequence ^= 1; })},
      {"other data", reply([&](Request& r) { flip(r.data, r.data.size() - 1); })},
      {"less data", reply([](Request& r) { r.data.erase(0, 1); })},
      {"more data", reply([](Request& r) { r.data += r.data; })},
      {"a wrong checksum", wrongSum},
      {"a redirect", redirect},
      {"about another host", error([&](Request& r) { flip(r.packet, r.HeaderSize() - 1); })},
      {"about another request", error([&](Request& r) { flip(r.packet, r.HeaderSize() + 7); })},
      {"about another program's", error([&](Request& r) { flip(r.packet, r.HeaderSize() + 5); })},
      {"quotes too little", error([](Request& r) { r.packet.resize(r.HeaderSize() + 7); })},
  };
  for (const auto& stranger : strangers) {
    auto peer = Peer([&](const EchoPeer::Request& request) {
      std::string right = EchoPeer::Reply(request);
      right[request.IsIPv6() ? 7 : 8] = 99;
      return Packets{stranger.packet(request), right};
    });
    const auto outcome = Ask(Host(5));
    EXPECT_EQ(outcome.status, 0) << stranger.what;
    EXPECT_EQ(outcome.host, Host(5)) << stranger.what;
    EXPECT_EQ(outcome.ttl, 99) << stranger.what;
  }
}

TEST_P(EchoPeerTest, OneReplyEach) {
  auto peer = Peer([&](const EchoPeer::Request& request) {
    return Packets{EchoPeer::Reply(request), EchoPeer::Reply(request),
                   Unreachable(Host(9), request)};
  });
  EchoClient echo;
  EchoSink& outcomes = echo.sink;
  for (int i = 1; i <= 100; ++i) echo.Send(Host(i));
  ASSERT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
  for (int i = 1; i <= 100; ++i) EXPECT_EQ(Ask(Host(1, 1)).status, 0);
  MessageLoop::ForThisThread().PumpMessages();
  EXPECT_EQ(outcomes.seen.size(), 100u);

  outcomes.answers.clear();
  echo.Duplicates(true);
  const std::int32_t id = echo.Send(Host(1));
  ASSERT_TRUE(PumpUntil([&] { return outcomes.answers.size() == 2; }));
  EXPECT_EQ(echo.Pending(), 0);
  for (const bool again : {false, true}) {
    EXPECT_EQ(outcomes.answers[again].Id, id);
    EXPECT_EQ(outcomes.answers[again].Duplicate, again);
    EXPECT_EQ(outcomes.answers[again].Host, Host(1));
  }
}

TEST_P(EchoPeerTest, LabelsAndCodesOfARouter) {
  const std::string extensions = testkit::MplsExtensions("\x03\xE8\x1A\x01\xFF\xFF\xF1\x07");
  auto peer = Peer([&](const EchoPeer::Request& request) {
    return Packets{EchoPeer::Error(request.IsIPv6() ? 3 : 11, 0, Host(9), request, extensions)};
  });
  EchoClient echo;
  EchoSink& sink = echo.sink;
  EXPECT_NE(echo.Send(Host(5), 1, 100), 0);
  ASSERT_TRUE(PumpUntil([&] { return sink.answers.size() == 1; }));
  const EchoAnswer& answer = sink.answers[0];
  EXPECT_EQ(answer.Status, 11013);
  EXPECT_EQ(answer.IcmpType, GetParam().v6 ? 3 : 11);
  EXPECT_EQ(answer.IcmpCode, 0);
  EXPECT_EQ(answer.Labels,
            (std::vector<MplsLabel>{{16'001, 5, false, 1}, {1'048'575, 0, true, 7}}));
}

// A reply that comes when nobody waits any more is not taken for that of the next request.
TEST_P(EchoPeerTest, LateRepliesAreIgnored) {
  std::string late;
  auto peer = Peer([&](const EchoPeer::Request& request) {
    if (late.empty()) {
      late = EchoPeer::Reply(request);
      return Packets{};
    }
    return Packets{late, Unreachable(Host(9), request)};
  });
  EchoClient echo;
  EchoSink& outcomes = echo.sink;
  const std::int32_t first = echo.Send(Host(5), 0, 32, 60'000);
  ASSERT_TRUE(PumpUntil([&] { return peer.Received().size() == 1; }));
  echo.Cancel(first);
  echo.Send(Host(5));
  ASSERT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
  ASSERT_EQ(outcomes.seen.size(), 1u);
  EXPECT_EQ(outcomes.seen[0].status, 11003);
}

// Errors that come while others are sent are told by the system at the next call, whichever it is.
TEST_P(EchoPeerTest, ErrorsOfSomeDoNotStopTheOthers) {
  auto peer = Peer([&](const EchoPeer::Request& request) {
    return Packets{request.sequence % 2 == 0 ? EchoPeer::Reply(request)
                                             : Unreachable(Host(99), request)};
  });
  EchoClient echo;
  EchoSink& outcomes = echo.sink;
  for (int i = 0; i < 200; ++i) {
    echo.Send(Host(i + 1, 2));
    ASSERT_TRUE(
        PumpUntil([&] { return peer.Received().size() == static_cast<std::size_t>(i) + 1; }));
  }
  ASSERT_TRUE(PumpUntil([&] { return echo.Pending() == 0; }));
  EXPECT_EQ(std::ranges::count(outcomes.seen, 0, &EchoSeen::status), 100);
  EXPECT_EQ(std::ranges::count(outcomes.seen, 11003, &EchoSeen::status), 100);
}

// The destination itself may answer with an error: that is where the way ends.
TEST_P(EchoPeerTest, ATraceEndsAtTheDestination) {
  EchoPeer::Request second;
  auto peer = Peer([&](const EchoPeer::Request& request) {
    if (request.ttl == 1) return Packets{Expired(Host(91), request)};
    if (request.ttl == 2) {
      second = request;
      return Packets{};
    }
    if (request.ttl == 3) return Packets{Expired(Host(92), second)};  // too late
    if (request.ttl == 4) return Packets{Unreachable(Host(94), request)};
    return Packets{EchoPeer::Error(request.IsIPv6() ? 4 : 3, request.IsIPv6() ? 1 : 2,
                                   request.destination, request)};
  });
  Tracer icmp;
  HopSink& hops = icmp.hops;
  icmp.TRTimeout(200);
  EXPECT_TRUE(icmp.TraceRt(Host(5)));
  EXPECT_EQ(hops.seen,
            (std::vector<HopSeen>{
                {Host(91), 11013}, {"", 11010}, {"", 11010}, {Host(94), 11003}, {Host(5), 11004}}));
  EXPECT_EQ(icmp.TRHopCount(), 5);

  const std::size_t before = peer.Received().size();
  hops.seen.clear();
  hops.hook = [](bool& cancel) { cancel = true; };
  EXPECT_FALSE(icmp.TraceRt(Host(5)));
  EXPECT_EQ(icmp.LastErr(), 9999);
  EXPECT_TRUE(icmp.TRCanceled());
  EXPECT_EQ(peer.Received().size(), before + 1) << "no further probe";
}

INSTANTIATE_TEST_SUITE_P(EchoNetwork, EchoPeerTest, testing::ValuesIn(kEchoWays), EchoWayName);

struct EchoRoute : BothKinds {
  void SetUp() override {
    if (!hosts_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    ASSERT_TRUE(GrantKind() && FourHosts::AwaitWay());
  }

  // The address of the same host in the family that is asked.
  std::string Host(const char* v4, const char* v6) const { return GetParam().v6 ? v6 : v4; }
  std::string Family() const { return GetParam().v6 ? "ipv6" : "ipv4"; }
  const std::string b_ = Host("10.3.0.2", "fd03::2");

  FourHosts hosts_;
};

TEST_P(EchoRoute, EachRouterIsAHop) {
  const std::vector<std::string> way = {Host("10.1.0.2", "fd01::2"), Host("10.2.0.2", "fd02::2"),
                                        b_};
  // The destination says that nobody listens at the UDP port, and refuses the connection.
  const std::pair<EchoProbeEnum, std::int32_t> probes[] = {
      {EchoProbeICMP, 0}, {EchoProbeUDP, 11005}, {EchoProbeTCP, 0}};
  for (const auto& [probe, reached] : probes)
    for (std::size_t length = 1; length <= way.size(); ++length) {
      Tracer icmp;
      HopSink& hops = icmp.hops;
      icmp.TRProbe(probe);
      EXPECT_TRUE(icmp.TraceRt(way[length - 1]));
      ASSERT_EQ(hops.seen.size(), length) << probe;
      for (std::size_t i = 0; i < length; ++i)
        EXPECT_EQ(hops.seen[i], (HopSeen{way[i], i + 1 == length ? reached : 11013})) << probe;
      EXPECT_EQ(icmp.TRHopCount(), static_cast<std::int32_t>(length));
    }
}

// A router of this system says so five times at once, then once a second.
TEST_P(EchoRoute, RoutersThatGoNoFurther) {
  const std::tuple<bool, const char*, const char*, std::int32_t> cases[] = {
      {false, "10.9.1.1", "10.2.0.2", 11003},  // unreachable
      {false, "10.9.2.1", "10.2.0.2", 11003},  // prohibited
      {false, "10.9.4.1", "10.2.0.2", 11002},  // no route there
      {false, "10.8.0.1", "10.1.0.2", 11002},  // nor here
      {false, "10.9.3.1", "", 11010},          // black hole
      {true, "fd09:0:1::1", "fd02::2", 11002}, {true, "fd09:0:2::1", "fd02::2", 11003},
      {true, "fd09:0:4::1", "fd02::2", 11002}, {true, "fd08::1", "fd01::2", 11002},
      {true, "fd09:0:3::1", "", 11010},
  };
  for (const auto& [v6, ip, from, status] : cases) {
    if (v6 != GetParam().v6) continue;
    const auto outcome = Ask(ip, 0, 32, *from == 0 ? 200 : 5000);
    EXPECT_EQ(outcome.status, status) << ip;
    EXPECT_EQ(outcome.host, from) << ip;
  }
}

TEST_P(EchoRoute, NoRouteOfOurOwn) {
  ASSERT_TRUE(OwnNetwork::Ip(
      "route del default\nroute del default via fd01::2\nroute add unreachable 10.66.0.0/16\n"
      "route add prohibit 10.67.0.0/16\nroute add unreachable fd66::/16\n"
      "route add prohibit fd67::/16\n"));
  EXPECT_EQ(Ask(b_).status, 11002);
  EXPECT_EQ(Ask(Host("10.66.0.1", "fd66::1")).status, 11003);
  EXPECT_EQ(Ask(Host("10.67.0.1", "fd67::1")).status, 11050);
  EXPECT_EQ(ICMPCls().PingHost(b_), -11002);
  Tracer icmp;
  HopSink& hops = icmp.hops;
  icmp.TRMaxHops(2);
  EXPECT_TRUE(icmp.TraceRt(b_));
  EXPECT_EQ(hops.seen, (std::vector<HopSeen>(2, {"", 11002})));
}

TEST_P(EchoRoute, AnAbsentNeighbour) {
  ASSERT_TRUE(OwnNetwork::Set("neigh/toR1/retrans_time_ms", "10", Family()));
  const auto outcome = Ask(Host("10.1.0.77", "fd01::77"));
  EXPECT_EQ(outcome.status, 11003);
  EXPECT_EQ(outcome.host, Host("10.1.0.1", "fd01::1")) << "this host says so itself";
}

// Packets to absent neighbours fill the system's buffer for as long as it asks for them.
TEST_P(EchoRoute, RequestsWaitForRoomInTheBuffer) {
  const std::tuple<const char*, std::int32_t, std::int32_t> cases[] = {{"1", 4000, 0},
                                                                       {"1000", 50, 11006}};
  for (const auto& [retryMilliSeconds, timeout, status] : cases) {
    ASSERT_TRUE(OwnNetwork::Set("neigh/toR1/retrans_time_ms", retryMilliSeconds, Family()));
    EchoClient echo;
    EchoSink& outcomes = echo.sink;
    for (int i = 3; i < 253; ++i)
      echo.Send(Host("10.1.0.", "fd01::") + std::to_string(i), 0, 60'000, timeout);
    const std::int32_t last = echo.Send(Host("10.1.0.2", "fd01::2"), 0, 60'000, timeout);
    const auto isLast = [&](const auto& outcome) { return outcome.id == last; };
    ASSERT_TRUE(PumpUntil([&] { return std::ranges::any_of(outcomes.seen, isLast); }));
    EXPECT_EQ(std::ranges::find_if(outcomes.seen, isLast)->status, status);
  }
}

// The first packet that is too long for the way is refused; then the system knows, and cuts.
TEST_P(EchoRoute, ANarrowWay) {
  ASSERT_TRUE(hosts_.IpAt(hosts_.R2(), "link set toB mtu 1300\n"));
  ASSERT_TRUE(hosts_.IpAt(hosts_.B(), "link set toR2 mtu 1300\n"));
  ICMPCls icmp;
  icmp.PingPacketSize(1400);
  EXPECT_EQ(icmp.PingHost(b_), -11009);
  EXPECT_GE(icmp.PingHost(b_), 0);
}

INSTANTIATE_TEST_SUITE_P(EchoNetwork, EchoRoute, testing::ValuesIn(kEchoWays), EchoWayName);

struct EchoRoute6 : EchoRoute {};

// A link-local address is one of its link.
TEST_P(EchoRoute6, LinkLocalHosts) {
  ASSERT_TRUE(hosts_.IpAt(hosts_.R1(), "address add fe80::99/64 dev toA\n"));
  const auto outcome = Ask("fe80::99%toR1");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.host, "fe80::99%toR1");
  ASSERT_TRUE(OwnNetwork::Set("neigh/toR1/retrans_time_ms", "10", "ipv6"));
  EXPECT_EQ(Ask("fe80::77%toR1").status, 11003) << "nobody has it";
  EXPECT_EQ(Ask("fe80::99").status, 11050) << "on which link?";
}

INSTANTIATE_TEST_SUITE_P(EchoNetwork, EchoRoute6, testing::Values(kEchoWays[2], kEchoWays[3]),
                         EchoWayName);

}  // namespace
}  // namespace netro
