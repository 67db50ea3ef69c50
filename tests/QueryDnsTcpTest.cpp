// QueryDNSCLS over TCP: framing, how connections fail and end, pauses, and zone transfers.
#include "DnsTestKit.h"

namespace netro {
namespace {

using namespace testkit::dns;

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
  for (int i = begin; i < end; ++i) records.push_back(HostRecord(i));
  return records;
}

struct ZoneTransfer : testing::Test {
  std::int16_t Transfer(const DnsServer& server, QueryEnum type = TYPE_AXFR) {
    PointAt(*dns_, server.Port(), type, "test");
    return dns_->QueryZone();
  }
  std::int16_t Transfer(const Messages& messages, QueryEnum type = TYPE_AXFR, bool questions = true,
                        std::vector<std::size_t> cuts = {}) {
    return Transfer(OverTcp([&](const auto& query) { return StreamOf(messages, query, questions); },
                            StreamEnd::kStay, std::move(cuts)),
                    type);
  }

  std::int16_t RunSlowly();

  std::unique_ptr<QueryDNSCLS> dns_ = std::make_unique<QueryDNSCLS>();
  std::chrono::nanoseconds waited_{0};
};

TEST_F(ZoneTransfer, EndsWithTheSecondSoa) {
  const std::string soa = SoaRecord(), one = HostRecord(1), two = HostRecord(2);
  const std::string none = Record(Name("test"), 0, "");
  const std::tuple<const char*, Messages, int> kCases[] = {
      {"one message", {{soa, one, two, soa}}, 4},
      {"two SOAs alone", {{soa, soa}}, 2},
      {"SOA first alone", {{soa}, {one, two, soa}}, 4},
      {"SOA last alone", {{soa, one, two}, {soa}}, 4},
      {"a message for each record", {{soa}, {one}, {two}, {HostRecord(3)}, {soa}}, 5},
      {"a message without records", {{soa, one}, {}, {soa}}, 3},
      {"more behind the end", {{soa, one}, {soa}, {two}}, 3},
      {"type 0 ends it", {{soa, one}, {two, none}, {HostRecord(3)}}, 4},
      {"type 0 in the first", {{soa, one, none}}, 3},
  };
  for (const auto& [name, messages, records] : kCases)
    for (const bool questions : {true, false})
      for (const QueryEnum type : {TYPE_AXFR, TYPE_IXFR}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Transfer(messages, type, questions), 0);
        EXPECT_EQ(Told(*dns_), "0 Success " + std::to_string(records) + "/0/0");
        EXPECT_EQ(dns_->EntryAN(1)->DataType(), TYPE_SOA);
        EXPECT_EQ(dns_->InBuffer(), StreamOf({messages[0]}, dns_->OutBuffer().substr(2)).substr(2));
      }
  dns_->UseUDP(false);
  const DnsServer server = OverTcp([&](auto& query) { return StreamOf({{soa}, {soa}}, query); });
  PointAt(*dns_, server.Port(), TYPE_AXFR, "test");
  EXPECT_EQ(dns_->QueryDNS(), 0);
  EXPECT_EQ(dns_->CountAN(), 2);
}

TEST_F(ZoneTransfer, CutAnywhere) {
  const Messages messages = {{SoaRecord(), HostRecord(1)}, {HostRecord(2)}, {SoaRecord()}};
  std::size_t size = 3;
  for (std::size_t cut = 1; cut < size; ++cut) {
    EXPECT_EQ(Transfer(messages, TYPE_AXFR, true, {cut}), 0) << cut;
    EXPECT_EQ(dns_->CountAN(), 4) << cut;
    size = StreamOf(messages, dns_->OutBuffer().substr(2)).size();
  }
  ASSERT_GT(size, 100u);
}

TEST_F(ZoneTransfer, ManyLongMessages) {
  Messages messages = {{SoaRecord()}};
  for (int i = 0; i < 20'000; i += 2000) messages.push_back(Hosts(i, i + 2000));
  messages.push_back({SoaRecord()});
  ASSERT_EQ(Transfer(messages), 0);
  ASSERT_EQ(dns_->CountAN(), 20'002);
  for (const int i : {0, 1999, 2000, 19'999})
    EXPECT_EQ(dns_->EntryAN(i + 2)->Query(), "h" + std::to_string(i) + ".test");
  EXPECT_EQ(dns_->EntryAN("h19999.test"), dns_->EntryAN(20'001));
}

TEST_F(ZoneTransfer, OtherTypesAreOneMessage) {
  for (const QueryEnum type : {TYPE_SOA, TYPE_ALL, TYPE_A}) {
    EXPECT_EQ(Transfer({{SoaRecord()}, {HostRecord(1), SoaRecord()}}, type), 0);
    EXPECT_EQ(dns_->CountAN(), 1);
  }
  EXPECT_EQ(Transfer(DnsServer(Replying([](auto& reply) { reply.Code(5); }))), 5);
  EXPECT_EQ(dns_->CountAll(), 0);
}

TEST_F(ZoneTransfer, EarlyEndKeepsWhatHasCome) {
  const Messages begun = {{SoaRecord(), HostRecord(1)}, {HostRecord(2), HostRecord(3)}};
  for (const std::size_t more : {0, 1, 2, 20})
    for (const StreamEnd end : {StreamEnd::kClose, StreamEnd::kReset}) {
      SCOPED_TRACE(more);
      DnsServer server(KeepSilent, [&](Connection& connection, const std::string& query) {
        const std::string stream = StreamOf(begun, query);
        const std::string next = StreamOf({{HostRecord(4), SoaRecord()}}, query);
        connection.SendCut(stream + next.substr(0, more) + "x", {stream.size()});
        SendThen([](const auto&) { return ""s; }, end)(connection, query);
      });
      EXPECT_EQ(Transfer(server), end == StreamEnd::kClose ? 56 : 10054);
      EXPECT_EQ(dns_->CountAN(), 4);
    }
  EXPECT_EQ(Transfer(OverTcp([](const std::string& query) {
              return StreamOf({{SoaRecord(), HostRecord(1)}}, query) +
                     Framed(DnsReply(query).AnswerCount(3).Bytes()) +
                     StreamOf({{SoaRecord()}}, query);
            })),
            56);
  EXPECT_EQ(dns_->CountAN(), 2) << "in front of a garbled message";
}

// A byte at a time, as it were: a piece comes every eight seconds.
std::int16_t ZoneTransfer::RunSlowly() {
  constexpr int kPieces = 4;
  std::atomic<int> sent{0}, wanted{1};
  DnsServer server(KeepSilent, [&](Connection& connection, const std::string& query) {
    const std::string stream = StreamOf({{SoaRecord()}, {HostRecord(1)}, {HostRecord(2)}}, query) +
                               "\0"s;  // and half of a length
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
  const std::int16_t code = Transfer(server);
  waited_ = Now() - before;
  while (wanted <= kPieces) MessageLoop::ForThisThread().PumpMessages();  // nothing stays posted
  return code;
}

TEST_F(ZoneTransfer, TenSecondsAreForEachSilence) {
  EXPECT_EQ(RunSlowly(), 10002);
  EXPECT_EQ(dns_->CountAN(), 3);
  EXPECT_GE(waited_, milliseconds(4 * 8000));
}

TEST_F(ZoneTransfer, ATotalLimitEndsWhatIsNeverSilent) {
  dns_->TotalTimeout(20);
  EXPECT_EQ(RunSlowly(), 10002);
  EXPECT_LT(waited_, milliseconds(4 * 8000 + 9000)) << "the last silence is not waited for";
}

TEST_F(ZoneTransfer, BeyondMaxAnswerItSaysSo) {
  for (const std::int64_t most : {1'000, 100'000, 0}) {
    dns_->MaxAnswer(most);
    EXPECT_EQ(Transfer({{SoaRecord()}, Hosts(0, 100), {SoaRecord()}}), most == 1'000 ? 10040 : 0);
    EXPECT_EQ(dns_->CountAN(), most == 1'000 ? 101 : 102) << "what has come is kept";
  }
}

// The client has taken all but the last byte, and waits.
TEST_F(ZoneTransfer, EndedByTheCallerKeepsWhatHasCome) {
  std::atomic<bool> taken{false};
  DnsServer server(KeepSilent, [&](Connection& connection, const std::string& query) {
    const std::string stream = StreamOf({{SoaRecord(), HostRecord(1)}}, query);
    connection.SendCut(stream + '\0', {stream.size()});
    taken = true;
    std::string rest;
    connection.ReadToEnd(rest);
  });
  const auto transferAndMeanwhile = [&](const std::function<void()>& action) {
    taken = false;
    PostWhen([&] { return taken.load(); }, action);
    return Transfer(server);
  };
  EXPECT_EQ(transferAndMeanwhile([&] {
              EXPECT_EQ(dns_->QueryZone(), 10036);
              EXPECT_EQ(dns_->QueryDNS(), 10036);
              dns_->StopWaiting();
            }),
            9999);
  EXPECT_EQ(dns_->LastErr(), 9999);
  EXPECT_EQ(dns_->CountAN(), 2);
  EXPECT_EQ(transferAndMeanwhile([&] { dns_.reset(); }), 9999);
}

}  // namespace
}  // namespace netro
