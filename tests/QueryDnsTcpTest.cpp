// QueryDNSCLS over TCP: framing, how connections fail and end; and how the caller ends its pause.
#include "DnsTestKit.h"

namespace netro {
namespace {

using namespace peers::dns;

std::string Good(const std::string& query) {
  return DnsReply(query).Answer(HostRecord(1)).Additional(HostRecord(2)).Bytes();
}

using Stream = std::function<std::string(const std::string& query)>;

struct QueryDnsTcp : testing::Test {
  // Asks a server that sends `stream` once, over TCP.
  std::int16_t Ask(const Stream& stream, StreamEnd end = StreamEnd::kStay,
                   std::vector<std::size_t> cuts = {}) {
    return Ask(OverTcp(stream, end, std::move(cuts)));
  }
  std::int16_t Ask(const DnsServer& server) {
    PointAt(dns_, server.Port());
    dns_.UseUDP(false);
    return dns_.QueryDNS();
  }

  QueryDNSCLS dns_;
};

TEST_F(QueryDnsTcp, LengthStandsInFront) {
  const std::string message =
      "\0\x19\x01\0\0\x01\0\0\0\0\0\0"s + Name("www.test") + U16(15) + U16(1);
  BytesServer server({{AwaitBytes(2 + message.size()), Send(Framed(Good(message)))}});
  PointAt(dns_, server.Port(), TYPE_MX);
  dns_.UseUDP(false);
  ASSERT_EQ(dns_.QueryDNS(), 0);
  EXPECT_EQ(server.Received(0), Framed(message));
  EXPECT_EQ(dns_.OutBuffer(), Framed(message));
  EXPECT_EQ(dns_.InBuffer(), Good(message));
  EXPECT_EQ(Told(dns_), "0 Success 1/0/1");
  EXPECT_EQ(dns_.EntryAN(1)->Data(), "10.0.0.1");
}

// Cuts anywhere are tests of the zone transfer.
TEST_F(QueryDnsTcp, TheLongestReplyInPieces) {
  const auto longest = [](const std::string& query) {
    DnsReply reply(query);
    const std::size_t room = 65'535 - reply.Size() - 12;
    return Framed(reply.Answer(Record(kQuestion, TYPE_NULL, std::string(room, 'x'))).Bytes());
  };
  EXPECT_EQ(Ask(longest, StreamEnd::kClose, {1, 16'001, 40'000}), 0);
  EXPECT_EQ(dns_.InBuffer().size(), 65'535u);
}

TEST_F(QueryDnsTcp, WhatAStreamResultsIn) {
  const struct {
    const char* name;
    Stream stream;
    std::int16_t result;
    int records = 0;
    StreamEnd end = StreamEnd::kStay;
  } kCases[] = {
      {"one message is taken",
       [](auto& query) { return Framed(Good(query)) + Framed(Good(query)) + "xyz"; }, 0, 2},
      {"no records", [](auto& query) { return Framed(DnsReply(query).Bytes()); }, 22},
      {"authority only",
       [](auto& query) { return Framed(DnsReply(query).Authority(SoaRecord()).Bytes()); }, 0, 1},
      {"a code", [](auto& query) { return Framed(DnsReply(query).Code(1).Bytes()); }, 1},
      {"a code and records",
       [](auto& query) { return Framed(DnsReply(Good(query)).Code(15).Bytes()); }, 15},
      {"a count that lies",
       [](auto& query) { return Framed(DnsReply(query).AnswerCount(1).Bytes()); }, 56},
      {"the last byte missing",
       [](auto& query) { return Framed(Good(query).substr(0, Good(query).size() - 1)); }, 56},
      {"foreign messages, then the reply",
       [](auto& query) {
         const DnsReply other = DnsReply(query).Code(3).Question(Name("x") + U32(65537));
         return "\0\0"s + Framed("\0\x19\x80"s) + Framed(query) +
                Framed(DnsReply(query).Code(3).Id(26).Bytes()) + Framed(other.Bytes()) +
                Framed(Good(query));
       },
       0, 2},
      {"an end before the length", [](auto&) { return "\0"s; }, 56, 0, StreamEnd::kClose},
      {"an end within a message", [](auto& query) { return Framed(Good(query)).substr(0, 60); }, 56,
       0, StreamEnd::kClose},
      {"a reset", [](auto&) { return ""s; }, 10054, 0, StreamEnd::kReset},
      {"a reset within a message", [](auto& query) { return Framed(Good(query)).substr(0, 9); },
       10054, 0, StreamEnd::kReset},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Ask(c.stream, c.end), c.result);
    EXPECT_EQ(dns_.LastErrMsg(), QueryDNSCLS().TranslateDNSResult(c.result));
    EXPECT_EQ(dns_.CountAll(), c.records);
  }
  const RefusingPort nobody;
  PointAt(dns_, nobody.Port());
  EXPECT_EQ(dns_.QueryDNS(), 10061);
  EXPECT_EQ(dns_.QueryZone(), 10061);
}

TEST_F(QueryDnsTcp, EachWaitHasTenSeconds) {
  DnsServer silent(KeepSilent);
  const HangingPort full;
  for (const bool connects : {true, false}) {
    SCOPED_TRACE(connects);
    PointAt(dns_, connects ? silent.Port() : full.Port());
    dns_.UseUDP(false);
    const RunningClock clock([&] { return !connects || silent.QueryCount() > 0; });
    const Takes time(milliseconds(9'990), milliseconds(12'000));
    EXPECT_EQ(dns_.QueryDNS(), 10002);
    EXPECT_EQ(dns_.LastErrMsg(), "Command Timed Out");
  }
}

TEST_F(QueryDnsTcp, HalfAReplyDoesNotProlongTheWait) {
  std::atomic<bool> go{false}, taken{false};
  DnsServer server(KeepSilent, [&](Connection& connection, const std::string& query) {
    while (!go) std::this_thread::yield();
    connection.SendCut(Framed(Good(query)).substr(0, 20), {19});
    taken = true;
    std::string rest;
    connection.ReadToEnd(rest);
  });
  PointAt(dns_, server.Port());
  dns_.UseUDP(false);
  int turns = 0;  // a few, until sending is over
  PostWhen([&] { return server.QueryCount() > 0 && ++turns > 20; },
           [&] {
             AdvanceClockForTests(milliseconds(5000));
             go = true;
           });
  PostWhen([&] { return taken.load(); }, [] { AdvanceClockForTests(milliseconds(5000)); });
  const Takes time(seconds(0), milliseconds(13'000));
  EXPECT_EQ(dns_.QueryDNS(), 10002);
}

TEST_F(QueryDnsTcp, OnlyQueryDnsAsksAgain) {
  DnsServer server(KeepSilent);
  PointAt(dns_, server.Port());
  dns_.UseUDP(false);
  dns_.RetryCount(2);
  dns_.RetryPauseMilliSeconds(0);
  std::size_t turns = 0;  // eleven seconds for each query that has come
  const RunningClock clock([&] { return turns < 110 * server.QueryCount() && ++turns > 0; });
  EXPECT_EQ(dns_.QueryDNS(), 10002);
  EXPECT_EQ(server.Connections(), 2u);
  EXPECT_EQ(dns_.QueryZone(), 10002);
  EXPECT_EQ(server.Connections(), 3u);
  dns_.RetryCount(0);
  dns_.UseUDP(true);  // which is nothing to QueryZone either
  EXPECT_EQ(dns_.QueryZone(), 10002);
  EXPECT_EQ(server.Connections(), 4u);
}

TEST_F(QueryDnsTcp, ProxiesAreNotForDatagrams) {
  DnsServer server(Replying([](auto& reply) { reply.Answer(HostRecord(1)); }));
  SocksServer unused;
  PointAt(dns_, server.Port());
  dns_.ProxyType(DNSProxySocks5Auth);
  dns_.ProxyURL("127.0.0.1");
  dns_.ProxyPort(unused.Port());
  EXPECT_EQ(dns_.QueryDNS(), 0);
  EXPECT_EQ(unused.Connections(), 0u);
}

const DnsServer::Answer kAnswer = Replying([](auto& reply) { reply.Answer(HostRecord(1)); });

TEST(QueryDnsWait, StopInThePauseGivesTheLastResult) {
  enum { kLoop, kThread, kDeletion };
  DnsServer silent(KeepSilent);
  for (const auto way : {kLoop, kThread, kDeletion}) {
    auto dns = std::make_unique<QueryDNSCLS>();
    PointAt(*dns, silent.Port());
    dns->RetryCount(2);
    dns->RetryPauseMilliSeconds(3'600'000);
    const TimePoint end = Now() + milliseconds(2000);
    const RunningClock clock([] { return true; }, milliseconds(2000));
    std::thread other;
    PostWhen([=] { return Now() >= end; },
             [&] {
               if (way == kDeletion) return dns.reset();
               if (way == kLoop) return dns->StopWaiting();
               other = std::thread([&] { dns->StopWaiting(); });
             });
    const std::int16_t result = dns->QueryDNS();
    if (other.joinable()) other.join();
    EXPECT_EQ(dns == nullptr, way == kDeletion);
    if (!dns) continue;
    EXPECT_EQ(result, 10002);
    EXPECT_EQ(dns->LastErr(), 10002);
  }
  EXPECT_EQ(silent.Queries().size(), 3u);
}

TEST(QueryDnsWait, LeavesOthersAloneAndTakesNewSettingsForTheNext) {
  DnsServer silent(KeepSilent), good(kAnswer);
  QueryDNSCLS dns, other;
  PointAt(other, good.Port());
  PointAt(dns, silent.Port());
  dns.RetryCount(2);
  dns.RetryPauseMilliSeconds(0);
  dns.StopWaiting();  // of before, and not of now
  bool changed = false;
  const RunningClock clock([&] { return changed; });
  PostWhen([&] { return silent.QueryCount() > 0; },
           [&] {
             EXPECT_EQ(other.QueryDNS(), 0);
             PointAt(dns, good.Port(), TYPE_MX, "other.test");
             dns.UseUDP(false);
             changed = true;
           });
  EXPECT_EQ(dns.QueryDNS(), 10002);
  changed = false;
  EXPECT_EQ(silent.Queries(), std::vector(2, dns.OutBuffer()));
  EXPECT_EQ(dns.QueryDNS(), 0);
  EXPECT_EQ(good.Connections(), 1u);
}

}  // namespace
}  // namespace netro
