// QueryDNSCLS over TCP: framing, how connections fail and end, and SOCKS proxies.

#include <gtest/gtest.h>
#include <netro/QueryDNSCLS.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DnsTestKit.h"
#include "tests/peers/BytesServer.h"
#include "tests/peers/SocksServer.h"

namespace netro {
namespace {

using namespace std::string_literals;
using namespace peers::dns;
using peers::Connection;
using peers::DnsReply;
using peers::DnsServer;
using peers::SocksRules;
using peers::SocksServer;
using std::chrono::milliseconds;
using Replies = DnsServer::Replies;

std::string Good(const std::string& query) {
  return DnsReply(query).Answer(HostRecord(1)).Additional(HostRecord(2)).Bytes();
}

class QueryDnsTcp : public testing::Test {
 protected:
  // Asks a server that sends `stream` once, over TCP.
  std::int16_t Ask(std::function<std::string(const std::string&)> stream, StreamEnd end,
                   std::vector<std::size_t> cuts = {}) {
    DnsServer server(KeepSilent, SendThen(std::move(stream), end, std::move(cuts)));
    PointAt(dns_, server.Port());
    dns_.UseUDP(false);
    return dns_.QueryDNS();
  }

  QueryDNSCLS dns_;
};

TEST_F(QueryDnsTcp, LengthStandsInFront) {
  const std::string message =
      "\0\x19\x01\0\0\x01\0\0\0\0\0\0"s + Name("www.test") + U16(15) + U16(1);
  peers::BytesServer server(
      {{peers::AwaitBytes(2 + message.size()), peers::Send(Framed(Good(message)))}});
  PointAt(dns_, server.Port(), TYPE_MX);
  dns_.UseUDP(false);
  ASSERT_EQ(dns_.QueryDNS(), 0);
  EXPECT_EQ(server.Received(0), Framed(message));
  EXPECT_EQ(dns_.OutBuffer(), Framed(message));
  EXPECT_EQ(dns_.InBuffer(), Good(message));
  EXPECT_EQ(dns_.CountAN(), 1);
  EXPECT_EQ(dns_.CountAR(), 1);
  EXPECT_EQ(dns_.EntryAN(1)->Data(), "10.0.0.1");
}

TEST_F(QueryDnsTcp, ReplyCutAnywhere) {
  const auto stream = [](const std::string& query) { return Framed(Good(query)); };
  std::size_t size = 3;
  for (std::size_t cut = 1; cut < size; ++cut) {
    EXPECT_EQ(Ask(stream, StreamEnd::kStay, {cut}), 0) << cut;
    EXPECT_EQ(dns_.CountAll(), 2) << cut;
    size = dns_.InBuffer().size() + 2;
  }
  ASSERT_GT(size, 50u);
}

TEST_F(QueryDnsTcp, LongestReply) {
  const auto stream = [](const std::string& query) {
    DnsReply reply(query);
    const std::size_t room = 65'535 - reply.Size() - 12;
    reply.Answer(Record(kQuestion, TYPE_NULL, std::string(room, '\xAB')));
    return Framed(reply.Bytes());
  };
  EXPECT_EQ(Ask(stream, StreamEnd::kStay), 0);
  EXPECT_EQ(dns_.InBuffer().size(), 65'535u);
  EXPECT_EQ(Ask(stream, StreamEnd::kClose, {1, 16'001, 40'000}), 0);
  EXPECT_EQ(dns_.InBuffer().size(), 65'535u);
}

TEST_F(QueryDnsTcp, OneMessageIsTaken) {
  EXPECT_EQ(Ask([](const auto& query) { return Framed(Good(query)) + Framed(Good(query)) + "xyz"; },
                StreamEnd::kStay),
            0);
  EXPECT_EQ(dns_.CountAll(), 2);
}

TEST_F(QueryDnsTcp, ResponseCodeIsTheResult) {
  for (int code = 1; code < 16; ++code) {
    for (const bool empty : {true, false}) {
      EXPECT_EQ(Ask(
                    [&](const auto& query) {
                      return Framed(DnsReply(empty ? query : Good(query)).Code(code).Bytes());
                    },
                    StreamEnd::kStay),
                code);
      EXPECT_EQ(dns_.LastErr(), code);
      EXPECT_EQ(dns_.LastErrMsg(), QueryDNSCLS().TranslateDNSResult(code));
    }
  }
}

TEST_F(QueryDnsTcp, ReplyWithoutRecordsIs22) {
  EXPECT_EQ(
      Ask([](const auto& query) { return Framed(DnsReply(query).Bytes()); }, StreamEnd::kStay), 22);
  EXPECT_EQ(dns_.LastErrMsg(), "No DNS Entries found.");
  EXPECT_EQ(
      Ask([](const auto& query) { return Framed(DnsReply(query).Authority(SoaRecord()).Bytes()); },
          StreamEnd::kStay),
      0);
  EXPECT_EQ(dns_.CountNS(), 1);
}

TEST_F(QueryDnsTcp, EndBeforeAWholeMessageIs56) {
  std::size_t size = 1;
  for (std::size_t sent = 0; sent < size; ++sent) {
    EXPECT_EQ(Ask(
                  [&](const auto& query) {
                    size = Framed(Good(query)).size();
                    return Framed(Good(query)).substr(0, sent);
                  },
                  StreamEnd::kClose),
              56)
        << sent;
    EXPECT_EQ(dns_.LastErrMsg(), "Can not retrieve data from DNS server.");
    EXPECT_EQ(dns_.CountAll(), 0);
  }
  ASSERT_GT(size, 50u);
}

TEST_F(QueryDnsTcp, GarbledMessageIs56) {
  using Stream = std::function<std::string(const std::string&)>;
  for (const Stream& stream :
       {Stream([](const auto& query) { return DnsReply(query).AnswerCount(1).Bytes(); }),
        Stream([](const auto& query) { return Good(query).substr(0, Good(query).size() - 1); })})
    EXPECT_EQ(Ask([&](const auto& query) { return Framed(stream(query)); }, StreamEnd::kStay), 56);
}

TEST_F(QueryDnsTcp, ForeignMessagesAreIgnored) {
  EXPECT_EQ(Ask(
                [](const auto& query) {
                  const DnsReply other = DnsReply(query).Code(3).Question(Name("x") + U32(65537));
                  return "\0\0"s + Framed("\0\x19\x80"s) + Framed(query) +
                         Framed(DnsReply(query).Code(3).Id(26).Bytes()) + Framed(other.Bytes()) +
                         Framed(Good(query));
                },
                StreamEnd::kStay),
            0);
  EXPECT_EQ(dns_.CountAll(), 2);
}

TEST_F(QueryDnsTcp, ResetIsAnError) {
  EXPECT_EQ(Ask([](const auto&) { return ""s; }, StreamEnd::kReset), 10054);
  EXPECT_EQ(
      Ask([](const auto& query) { return Framed(Good(query)).substr(0, 9); }, StreamEnd::kReset),
      10054);
}

TEST_F(QueryDnsTcp, RefusedIs10061) {
  const peers::RefusingPort nobody;
  PointAt(dns_, nobody.Port());
  dns_.UseUDP(false);
  EXPECT_EQ(dns_.QueryDNS(), 10061);
  EXPECT_EQ(
      dns_.LastErrMsg(),
      "Connection Refused. The target machine actively refused the attempt to connect to it.");
  EXPECT_EQ(dns_.QueryZone(), 10061);
}

TEST_F(QueryDnsTcp, EachWaitHasTenSeconds) {
  DnsServer silent(KeepSilent);
  const peers::HangingPort full;
  for (const bool connects : {true, false}) {
    SCOPED_TRACE(connects);
    PointAt(dns_, connects ? silent.Port() : full.Port());
    dns_.UseUDP(false);
    const RunningClock clock([&] { return !connects || silent.QueryCount() > 0; });
    const TimePoint before = Now();
    EXPECT_EQ(dns_.QueryDNS(), 10002);
    EXPECT_GE(Now() - before, milliseconds(9'990));
    EXPECT_LT(Now() - before, milliseconds(12'000));
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
  const TimePoint before = Now();
  EXPECT_EQ(dns_.QueryDNS(), 10002);
  EXPECT_LT(Now() - before, milliseconds(13'000));
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
  EXPECT_EQ(dns_.QueryZone(), 10002);
  EXPECT_EQ(server.Connections(), 4u);
}

TEST_F(QueryDnsTcp, ZoneQueryIsAlwaysTcp) {
  DnsServer server([](const std::string& query) -> Replies { return {Good(query)}; });
  PointAt(dns_, server.Port());
  dns_.RetryCount(0);
  EXPECT_EQ(dns_.QueryZone(), 0);
  EXPECT_EQ(server.Connections(), 1u);
  EXPECT_EQ(dns_.CountAll(), 2);
}

TEST_F(QueryDnsTcp, ThroughEachProxy) {
  const struct {
    DNSProxyTypeEnum type;
    bool remoteNames;
    std::uint8_t method;
    std::size_t requests;
  } kCases[] = {{DNSProxySocks4, false, 0, 1},       {DNSProxySocks4, true, 0, 1},
                {DNSProxySocks5NoAuth, false, 0, 2}, {DNSProxySocks5NoAuth, true, 0, 2},
                {DNSProxySocks5Auth, false, 2, 3},   {DNSProxySocks5Auth, true, 2, 3}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.type);
    DnsServer server([](const std::string& query) -> Replies { return {Good(query)}; });
    SocksRules rules;
    rules.method = c.method;
    rules.user = "user";
    rules.password = "secret";
    SocksServer proxy(rules);
    PointAt(dns_, server.Port());
    dns_.DNSServer(c.remoteNames ? "ns.origin.test" : "127.0.0.1");
    dns_.UseUDP(false);
    dns_.ProxyType(c.type);
    dns_.ProxyURL("127.0.0.1");
    dns_.ProxyPort(proxy.Port());
    dns_.ProxyUser("user");
    dns_.ProxyPassword("secret");
    dns_.ProxyUseRemoteDNS(c.remoteNames);
    EXPECT_EQ(dns_.QueryDNS(), 0);
    EXPECT_EQ(dns_.CountAN(), 1);
    const std::vector<std::string> requests = proxy.Requests();
    ASSERT_EQ(requests.size(), c.requests);
    EXPECT_EQ(requests.back().find("ns.origin.test") != std::string::npos, c.remoteNames);
    EXPECT_EQ(requests.back()[0], c.type == DNSProxySocks4 ? 4 : 5);
  }
}

TEST_F(QueryDnsTcp, RefusalNamesTheProxy) {
  SocksRules refuses4, refuses5, noMethod, noUser;
  refuses4.version4Reply = 91;
  refuses5.version5Reply = 5;
  noMethod.method = 255;
  noUser.method = 2;
  const struct {
    SocksRules rules;
    DNSProxyTypeEnum type;
    std::int16_t result;
  } kCases[] = {{refuses4, DNSProxySocks4, 9001},
                {refuses5, DNSProxySocks5NoAuth, 9001},
                {noUser, DNSProxySocks5Auth, 9002},
                {noMethod, DNSProxySocks5Auth, 9003}};
  for (const auto& c : kCases) {
    DnsServer server(KeepSilent);
    SocksServer proxy(c.rules);
    PointAt(dns_, server.Port());
    dns_.UseUDP(false);
    dns_.ProxyType(c.type);
    dns_.ProxyURL("127.0.0.1");
    dns_.ProxyPort(proxy.Port());
    dns_.ProxyUser("nobody");
    EXPECT_EQ(dns_.QueryDNS(), c.result);
    const std::string name = "[Proxy SOCKS 127.0.0.1:" + std::to_string(proxy.Port()) + "] ";
    EXPECT_EQ(dns_.LastErrMsg().substr(0, name.size()), name);
    EXPECT_EQ(server.Connections(), 0u);
  }
}

TEST_F(QueryDnsTcp, DatagramsDoNotUseTheProxy) {
  DnsServer server([](const std::string& query) -> Replies { return {Good(query)}; });
  SocksServer proxy;
  PointAt(dns_, server.Port());
  dns_.ProxyType(DNSProxySocks4);
  dns_.ProxyURL("127.0.0.1");
  dns_.ProxyPort(proxy.Port());
  EXPECT_EQ(dns_.QueryDNS(), 0);
  EXPECT_EQ(proxy.Connections(), 0u);
}

}  // namespace
}  // namespace netro
