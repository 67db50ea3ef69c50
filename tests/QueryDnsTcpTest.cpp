// QueryDNSCLS over TCP: framing, how connections fail and end, SOCKS proxies, and zone transfers.

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

Replies KeepSilent(const std::string&) { return {}; }

std::string Host(int number) {
  return Record(Name("h" + std::to_string(number) + ".test"), TYPE_A,
                Octets({10, 0, number / 256, number % 256}));
}
std::string ZoneSoa(std::uint32_t serial = 1) {
  return Record(Name("test"), TYPE_SOA, Soa("ns.test", serial));
}

std::string Good(const std::string& query) {
  return DnsReply(query).Answer(Host(1)).Additional(Host(2)).Bytes();
}

// How the server goes on behind what it has sent.
enum class End { kStay, kClose, kReset };

DnsServer::Talk SendThen(std::function<std::string(const std::string& query)> stream, End end,
                         std::vector<std::size_t> cuts = {}) {
  return [=](Connection& connection, const std::string& query) {
    connection.SendCut(stream(query), cuts);
    std::string rest;
    if (end == End::kClose) connection.HalfClose();
    if (end == End::kReset) return connection.Reset();
    connection.ReadToEnd(rest);
  };
}

class QueryDnsTcp : public testing::Test {
 protected:
  // Asks a server that sends `stream` once, over TCP.
  std::int16_t Ask(std::function<std::string(const std::string&)> stream, End end,
                   std::vector<std::size_t> cuts = {}) {
    DnsServer server(KeepSilent, SendThen(std::move(stream), end, std::move(cuts)));
    PointAt(dns_, server.Port());
    dns_.UseUDP(false);
    return dns_.QueryDNS();
  }

  QueryDNSCLS dns_;
};

TEST_F(QueryDnsTcp, LengthStandsInFront) {
  std::string received;
  peers::LoopbackServer server([&](Connection& connection, std::size_t) {
    while (received.size() < 28 && connection.Read(received)) {
    }
    connection.Send(Framed(Good(received.substr(2))));
    connection.ReadToEnd(received);
  });
  PointAt(dns_, server.Port(), TYPE_MX);
  dns_.UseUDP(false);
  ASSERT_EQ(dns_.QueryDNS(), 0);
  const std::string message =
      "\0\x19\x01\0\0\x01\0\0\0\0\0\0"s + Name("www.test") + U16(15) + U16(1);
  EXPECT_EQ(dns_.OutBuffer(), Framed(message));
  EXPECT_EQ(dns_.InBuffer(), Good(message));
  EXPECT_EQ(dns_.CountAN(), 1);
  EXPECT_EQ(dns_.CountAR(), 1);
  EXPECT_EQ(dns_.EntryAN(1)->Data(), "10.0.0.1");
  EXPECT_EQ(received, dns_.OutBuffer());
}

TEST_F(QueryDnsTcp, ReplyCutAnywhere) {
  const auto stream = [](const std::string& query) { return Framed(Good(query)); };
  std::size_t size = 3;
  for (std::size_t cut = 1; cut < size; ++cut) {
    EXPECT_EQ(Ask(stream, End::kStay, {cut}), 0) << cut;
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
  EXPECT_EQ(Ask(stream, End::kStay), 0);
  EXPECT_EQ(dns_.InBuffer().size(), 65'535u);
  EXPECT_EQ(Ask(stream, End::kClose, {1, 16'001, 40'000}), 0);
  EXPECT_EQ(dns_.InBuffer().size(), 65'535u);
}

TEST_F(QueryDnsTcp, OneMessageIsTaken) {
  EXPECT_EQ(Ask([](const auto& query) { return Framed(Good(query)) + Framed(Good(query)) + "xyz"; },
                End::kStay),
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
                    End::kStay),
                code);
      EXPECT_EQ(dns_.LastErr(), code);
      EXPECT_EQ(dns_.LastErrMsg(), QueryDNSCLS().TranslateDNSResult(code));
    }
  }
}

TEST_F(QueryDnsTcp, ReplyWithoutRecordsIs22) {
  EXPECT_EQ(Ask([](const auto& query) { return Framed(DnsReply(query).Bytes()); }, End::kStay), 22);
  EXPECT_EQ(dns_.LastErrMsg(), "No DNS Entries found.");
  EXPECT_EQ(
      Ask([](const auto& query) { return Framed(DnsReply(query).Authority(ZoneSoa()).Bytes()); },
          End::kStay),
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
                  End::kClose),
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
    EXPECT_EQ(Ask([&](const auto& query) { return Framed(stream(query)); }, End::kStay), 56);
}

TEST_F(QueryDnsTcp, ForeignMessagesAreIgnored) {
  EXPECT_EQ(Ask(
                [](const auto& query) {
                  const DnsReply other = DnsReply(query).Code(3).Question(Name("x") + U32(65537));
                  return "\0\0"s + Framed("\0\x19\x80"s) + Framed(query) +
                         Framed(DnsReply(query).Code(3).Id(26).Bytes()) + Framed(other.Bytes()) +
                         Framed(Good(query));
                },
                End::kStay),
            0);
  EXPECT_EQ(dns_.CountAll(), 2);
}

TEST_F(QueryDnsTcp, ResetIsAnError) {
  EXPECT_EQ(Ask([](const auto&) { return ""s; }, End::kReset), 10054);
  EXPECT_EQ(Ask([](const auto& query) { return Framed(Good(query)).substr(0, 9); }, End::kReset),
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

// A transfer as messages of records; the last may be left out.
using Messages = std::vector<std::vector<std::string>>;

std::string StreamOf(const Messages& messages, const std::string& query, bool questions = true) {
  std::string stream;
  for (const auto& records : messages) {
    DnsReply reply(query);
    if (!questions && !stream.empty()) reply.Question({}, 0);  // RFC 5936, section 2.2.1
    for (const std::string& record : records) reply.Answer(record);
    stream += Framed(reply.Bytes());
  }
  return stream;
}

std::vector<std::string> Hosts(int begin, int end) {
  std::vector<std::string> records;
  for (int i = begin; i < end; ++i) records.push_back(Host(i));
  return records;
}

class ZoneTransfer : public testing::Test {
 protected:
  std::int16_t Transfer(DnsServer& server, QueryEnum type = TYPE_AXFR) {
    PointAt(*dns_, server.Port(), type, "test");
    return dns_->QueryZone();
  }

  std::unique_ptr<QueryDNSCLS> dns_ = std::make_unique<QueryDNSCLS>();
};

TEST_F(ZoneTransfer, EndsWithTheSecondSoa) {
  const std::string soa = ZoneSoa();
  const struct {
    const char* name;
    Messages messages;
    int records;
  } kCases[] = {
      {"one message", {{soa, Host(1), Host(2), soa}}, 4},
      {"two SOAs alone", {{soa, soa}}, 2},
      {"SOA first alone", {{soa}, {Host(1), Host(2), soa}}, 4},
      {"SOA last alone", {{soa, Host(1), Host(2)}, {soa}}, 4},
      {"a message for each record", {{soa}, {Host(1)}, {Host(2)}, {Host(3)}, {soa}}, 5},
      {"a message without records", {{soa, Host(1)}, {}, {soa}}, 3},
      {"more behind the end", {{soa, Host(1)}, {soa}, {Host(2)}}, 3},
      {"type 0 ends it", {{soa, Host(1)}, {Host(2), Record(Name("test"), 0, "")}, {Host(3)}}, 4},
      {"type 0 in the first", {{soa, Host(1), Record(Name("test"), 0, "")}}, 3},
  };
  for (const auto& c : kCases)
    for (const bool questions : {true, false})
      for (const QueryEnum type : {TYPE_AXFR, TYPE_IXFR}) {
        SCOPED_TRACE(c.name);
        DnsServer server(KeepSilent, SendThen(
                                         [&](const std::string& query) {
                                           return StreamOf(c.messages, query, questions);
                                         },
                                         End::kStay));
        EXPECT_EQ(Transfer(server, type), 0);
        EXPECT_EQ(dns_->CountAN(), c.records);
        EXPECT_EQ(dns_->CountAll(), c.records);
        ASSERT_NE(dns_->EntryAN(1), nullptr);
        EXPECT_EQ(dns_->EntryAN(1)->DataType(), TYPE_SOA);
        EXPECT_EQ(dns_->InBuffer(),
                  StreamOf({c.messages[0]}, dns_->OutBuffer().substr(2)).substr(2));
      }
}

TEST_F(ZoneTransfer, CutAnywhere) {
  const Messages messages = {{ZoneSoa(), Host(1)}, {Host(2)}, {ZoneSoa()}};
  std::size_t size = 3;
  for (std::size_t cut = 1; cut < size; ++cut) {
    DnsServer server(
        KeepSilent,
        SendThen([&](const auto& query) { return StreamOf(messages, query); }, End::kStay, {cut}));
    EXPECT_EQ(Transfer(server), 0) << cut;
    EXPECT_EQ(dns_->CountAN(), 4) << cut;
    size = StreamOf(messages, dns_->OutBuffer().substr(2)).size();
  }
  ASSERT_GT(size, 100u);
}

TEST_F(ZoneTransfer, ManyLongMessages) {
  DnsServer server(KeepSilent, SendThen(
                                   [](const std::string& query) {
                                     Messages messages = {{ZoneSoa()}};
                                     for (int i = 0; i < 20'000; i += 2000)
                                       messages.push_back(Hosts(i, i + 2000));
                                     messages.push_back({ZoneSoa()});
                                     return StreamOf(messages, query);
                                   },
                                   End::kStay));
  ASSERT_EQ(Transfer(server), 0);
  ASSERT_EQ(dns_->CountAN(), 20'002);
  for (const int i : {0, 1999, 2000, 19'999})
    EXPECT_EQ(dns_->EntryAN(i + 2)->Query(), "h" + std::to_string(i) + ".test");
  EXPECT_EQ(dns_->EntryAN("h19999.test"), dns_->EntryAN(20'001));
}

TEST_F(ZoneTransfer, OfQueryDnsOverTcp) {
  DnsServer server(KeepSilent, SendThen(
                                   [](const std::string& query) {
                                     return StreamOf({{ZoneSoa()}, {Host(1)}, {ZoneSoa()}}, query);
                                   },
                                   End::kStay));
  PointAt(*dns_, server.Port(), TYPE_AXFR, "test");
  dns_->UseUDP(false);
  EXPECT_EQ(dns_->QueryDNS(), 0);
  EXPECT_EQ(dns_->CountAN(), 3);
}

TEST_F(ZoneTransfer, OtherTypesAreOneMessage) {
  for (const QueryEnum type : {TYPE_SOA, TYPE_ALL, TYPE_A}) {
    DnsServer server(KeepSilent, SendThen(
                                     [](const std::string& query) {
                                       return StreamOf({{ZoneSoa()}, {Host(1), ZoneSoa()}}, query);
                                     },
                                     End::kStay));
    EXPECT_EQ(Transfer(server, type), 0);
    EXPECT_EQ(dns_->CountAN(), 1);
  }
}

TEST_F(ZoneTransfer, RefusedIsTheResponseCode) {
  DnsServer server(
      [](const std::string& query) -> Replies { return {DnsReply(query).Code(5).Bytes()}; });
  EXPECT_EQ(Transfer(server), 5);
  EXPECT_EQ(dns_->CountAll(), 0);
}

TEST_F(ZoneTransfer, EarlyEndKeepsWhatHasCome) {
  const Messages begun = {{ZoneSoa(), Host(1)}, {Host(2), Host(3)}};
  for (const std::size_t more : {0, 1, 2, 20}) {
    for (const End end : {End::kClose, End::kReset}) {
      SCOPED_TRACE(more);
      DnsServer server(KeepSilent, [&](Connection& connection, const std::string& query) {
        const std::string stream = StreamOf(begun, query);
        const std::string next = StreamOf({{Host(4), ZoneSoa()}}, query);
        connection.SendCut(stream + next.substr(0, more) + "x", {stream.size()});
        SendThen([](const auto&) { return ""s; }, end)(connection, query);
      });
      const std::int16_t result = Transfer(server);
      EXPECT_EQ(result, end == End::kClose ? 56 : 10054);
      EXPECT_EQ(dns_->CountAN(), 4);
    }
  }
}

TEST_F(ZoneTransfer, GarbledMessageKeepsWhatHasCome) {
  DnsServer server(KeepSilent, SendThen(
                                   [](const std::string& query) {
                                     return StreamOf({{ZoneSoa(), Host(1)}}, query) +
                                            Framed(DnsReply(query).AnswerCount(3).Bytes()) +
                                            StreamOf({{ZoneSoa()}}, query);
                                   },
                                   End::kStay));
  EXPECT_EQ(Transfer(server), 56);
  EXPECT_EQ(dns_->CountAN(), 2);
}

TEST_F(ZoneTransfer, TenSecondsAreForEachSilence) {
  constexpr int kPieces = 4;
  std::atomic<int> sent{0}, wanted{1};
  DnsServer server(KeepSilent, [&](Connection& connection, const std::string& query) {
    const std::string stream =
        StreamOf({{ZoneSoa()}, {Host(1)}, {Host(2)}}, query) + "\0"s;  // and half of a length
    const std::size_t size = stream.size() / kPieces;
    for (; sent < kPieces; ++sent) {
      while (wanted <= sent) std::this_thread::yield();
      const std::size_t begin = static_cast<std::size_t>(sent) * size;
      connection.SendCut(stream.substr(begin, sent + 1 < kPieces ? size : stream.size()),
                         {size - 1});
    }
    std::string rest;
    connection.ReadToEnd(rest);
  });
  const std::function<void()> next = [&] {
    AdvanceClockForTests(milliseconds(8000));
    if (wanted++ < kPieces) PostWhen([&] { return sent >= wanted; }, next);
  };
  PostWhen([&] { return sent >= 1; }, next);
  const RunningClock clock([&] { return wanted > kPieces; });
  const TimePoint before = Now();
  EXPECT_EQ(Transfer(server), 10002);
  EXPECT_GE(Now() - before, milliseconds(kPieces * 8000));
  EXPECT_EQ(dns_->CountAN(), 3);
}

// A transfer that has begun and now waits.
class ZoneTransferWaiting : public ZoneTransfer {
 protected:
  std::int16_t TransferAndMeanwhile(std::function<void()> action) {
    PostWhen([this] { return taken_.load(); }, std::move(action));
    return Transfer(server_);
  }

  std::atomic<bool> taken_{false};  // by the client: all but the last byte
  DnsServer server_{KeepSilent, [this](Connection& connection, const std::string& query) {
                      const std::string stream = StreamOf({{ZoneSoa(), Host(1)}}, query);
                      connection.SendCut(stream + '\0', {stream.size()});
                      taken_ = true;
                      std::string rest;
                      connection.ReadToEnd(rest);
                    }};
};

TEST_F(ZoneTransferWaiting, StopsAndKeepsWhatHasCome) {
  EXPECT_EQ(TransferAndMeanwhile([&] { dns_->StopWaiting(); }), 9999);
  EXPECT_EQ(dns_->LastErr(), 9999);
  EXPECT_EQ(dns_->CountAN(), 2);
}

TEST_F(ZoneTransferWaiting, DeletionInsideIsSafe) {
  EXPECT_EQ(TransferAndMeanwhile([&] { dns_.reset(); }), 9999);
}

TEST_F(ZoneTransferWaiting, AnotherQueryInsideIsRefused) {
  EXPECT_EQ(TransferAndMeanwhile([&] {
              EXPECT_EQ(dns_->QueryZone(), 10036);
              EXPECT_EQ(dns_->QueryDNS(), 10036);
              dns_->StopWaiting();
            }),
            9999);
  EXPECT_EQ(dns_->CountAN(), 2);
}

// Where a query over TCP waits: for the connection, the proxy, the reply.
class QueryDnsTcpWaiting : public testing::TestWithParam<const char*> {
 protected:
  QueryDnsTcpWaiting() {
    const std::string place = GetParam();
    PointAt(*dns_, place == "Connection" ? full_.Port() : server_.Port());
    dns_->UseUDP(false);
    dns_->ProxyType(place == "Proxy" ? DNSProxySocks5NoAuth : NoDNSProxy);
    dns_->ProxyURL("127.0.0.1");
    dns_->ProxyPort(proxy_.Port());
  }

  // Turns of the loop and connections of the peer tell that the query waits.
  std::int16_t QueryAndMeanwhile(std::function<void()> action) {
    const std::string place = GetParam();
    auto turns = std::make_shared<int>(0);
    PostWhen(
        [=, this] {
          return ++*turns > 20 &&
                 (place == "Connection" || proxy_.Connections() > 0 || server_.QueryCount() > 0);
        },
        std::move(action));
    return dns_->QueryDNS();
  }

  peers::HangingPort full_;
  DnsServer server_{KeepSilent};
  SocksServer proxy_{[] {
    SocksRules rules;
    rules.silentAt = 0;
    return rules;
  }()};
  std::unique_ptr<QueryDNSCLS> dns_ = std::make_unique<QueryDNSCLS>();
};

TEST_P(QueryDnsTcpWaiting, Stops) {
  EXPECT_EQ(QueryAndMeanwhile([&] { dns_->StopWaiting(); }), 9999);
  EXPECT_EQ(dns_->LastErr(), 9999);
  std::thread other;
  EXPECT_EQ(QueryAndMeanwhile([&] { other = std::thread([&] { dns_->Kill(); }); }), 9999);
  other.join();
}

TEST_P(QueryDnsTcpWaiting, DeletionInsideIsSafe) {
  EXPECT_EQ(QueryAndMeanwhile([&] { dns_.reset(); }), 9999);
}

TEST_P(QueryDnsTcpWaiting, AnotherQueryInsideIsRefused) {
  EXPECT_EQ(QueryAndMeanwhile([&] {
              EXPECT_EQ(dns_->QueryDNS(), 10036);
              EXPECT_EQ(dns_->QueryZone(), 10036);
              dns_->StopWaiting();
            }),
            9999);
}

INSTANTIATE_TEST_SUITE_P(Places, QueryDnsTcpWaiting,
                         testing::Values("Connection", "Proxy", "Reply"),
                         [](const auto& param) { return param.param; });

}  // namespace
}  // namespace netro
