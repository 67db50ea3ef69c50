// QueryDNSCLS and zone transfers: where one ends, what is kept when it ends too early, and how the
// caller ends it.

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

namespace netro {
namespace {

using namespace std::string_literals;
using namespace peers::dns;
using peers::Connection;
using peers::DnsReply;
using peers::DnsServer;
using std::chrono::milliseconds;
using Replies = DnsServer::Replies;

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

class ZoneTransfer : public testing::Test {
 protected:
  std::int16_t Transfer(DnsServer& server, QueryEnum type = TYPE_AXFR) {
    PointAt(*dns_, server.Port(), type, "test");
    return dns_->QueryZone();
  }

  std::unique_ptr<QueryDNSCLS> dns_ = std::make_unique<QueryDNSCLS>();
};

TEST_F(ZoneTransfer, EndsWithTheSecondSoa) {
  const std::string soa = SoaRecord();
  const struct {
    const char* name;
    Messages messages;
    int records;
  } kCases[] = {
      {"one message", {{soa, HostRecord(1), HostRecord(2), soa}}, 4},
      {"two SOAs alone", {{soa, soa}}, 2},
      {"SOA first alone", {{soa}, {HostRecord(1), HostRecord(2), soa}}, 4},
      {"SOA last alone", {{soa, HostRecord(1), HostRecord(2)}, {soa}}, 4},
      {"a message for each record",
       {{soa}, {HostRecord(1)}, {HostRecord(2)}, {HostRecord(3)}, {soa}},
       5},
      {"a message without records", {{soa, HostRecord(1)}, {}, {soa}}, 3},
      {"more behind the end", {{soa, HostRecord(1)}, {soa}, {HostRecord(2)}}, 3},
      {"type 0 ends it",
       {{soa, HostRecord(1)}, {HostRecord(2), Record(Name("test"), 0, "")}, {HostRecord(3)}},
       4},
      {"type 0 in the first", {{soa, HostRecord(1), Record(Name("test"), 0, "")}}, 3},
  };
  for (const auto& c : kCases)
    for (const bool questions : {true, false})
      for (const QueryEnum type : {TYPE_AXFR, TYPE_IXFR}) {
        SCOPED_TRACE(c.name);
        DnsServer server(KeepSilent, SendThen(
                                         [&](const std::string& query) {
                                           return StreamOf(c.messages, query, questions);
                                         },
                                         StreamEnd::kStay));
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
  const Messages messages = {{SoaRecord(), HostRecord(1)}, {HostRecord(2)}, {SoaRecord()}};
  std::size_t size = 3;
  for (std::size_t cut = 1; cut < size; ++cut) {
    DnsServer server(KeepSilent,
                     SendThen([&](const auto& query) { return StreamOf(messages, query); },
                              StreamEnd::kStay, {cut}));
    EXPECT_EQ(Transfer(server), 0) << cut;
    EXPECT_EQ(dns_->CountAN(), 4) << cut;
    size = StreamOf(messages, dns_->OutBuffer().substr(2)).size();
  }
  ASSERT_GT(size, 100u);
}

TEST_F(ZoneTransfer, ManyLongMessages) {
  DnsServer server(KeepSilent, SendThen(
                                   [](const std::string& query) {
                                     Messages messages = {{SoaRecord()}};
                                     for (int i = 0; i < 20'000; i += 2000)
                                       messages.push_back(Hosts(i, i + 2000));
                                     messages.push_back({SoaRecord()});
                                     return StreamOf(messages, query);
                                   },
                                   StreamEnd::kStay));
  ASSERT_EQ(Transfer(server), 0);
  ASSERT_EQ(dns_->CountAN(), 20'002);
  for (const int i : {0, 1999, 2000, 19'999})
    EXPECT_EQ(dns_->EntryAN(i + 2)->Query(), "h" + std::to_string(i) + ".test");
  EXPECT_EQ(dns_->EntryAN("h19999.test"), dns_->EntryAN(20'001));
}

TEST_F(ZoneTransfer, OfQueryDnsOverTcp) {
  DnsServer server(KeepSilent,
                   SendThen(
                       [](const std::string& query) {
                         return StreamOf({{SoaRecord()}, {HostRecord(1)}, {SoaRecord()}}, query);
                       },
                       StreamEnd::kStay));
  PointAt(*dns_, server.Port(), TYPE_AXFR, "test");
  dns_->UseUDP(false);
  EXPECT_EQ(dns_->QueryDNS(), 0);
  EXPECT_EQ(dns_->CountAN(), 3);
}

TEST_F(ZoneTransfer, OtherTypesAreOneMessage) {
  for (const QueryEnum type : {TYPE_SOA, TYPE_ALL, TYPE_A}) {
    DnsServer server(KeepSilent,
                     SendThen(
                         [](const std::string& query) {
                           return StreamOf({{SoaRecord()}, {HostRecord(1), SoaRecord()}}, query);
                         },
                         StreamEnd::kStay));
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
  const Messages begun = {{SoaRecord(), HostRecord(1)}, {HostRecord(2), HostRecord(3)}};
  const std::size_t kMore[] = {0, 1, 2, 20};
  for (const std::size_t more : kMore) {
    for (const StreamEnd end : {StreamEnd::kClose, StreamEnd::kReset}) {
      SCOPED_TRACE(more);
      DnsServer server(KeepSilent, [&](Connection& connection, const std::string& query) {
        const std::string stream = StreamOf(begun, query);
        const std::string next = StreamOf({{HostRecord(4), SoaRecord()}}, query);
        connection.SendCut(stream + next.substr(0, more) + "x", {stream.size()});
        SendThen([](const auto&) { return ""s; }, end)(connection, query);
      });
      const std::int16_t result = Transfer(server);
      EXPECT_EQ(result, end == StreamEnd::kClose ? 56 : 10054);
      EXPECT_EQ(dns_->CountAN(), 4);
    }
  }
}

TEST_F(ZoneTransfer, GarbledMessageKeepsWhatHasCome) {
  DnsServer server(KeepSilent, SendThen(
                                   [](const std::string& query) {
                                     return StreamOf({{SoaRecord(), HostRecord(1)}}, query) +
                                            Framed(DnsReply(query).AnswerCount(3).Bytes()) +
                                            StreamOf({{SoaRecord()}}, query);
                                   },
                                   StreamEnd::kStay));
  EXPECT_EQ(Transfer(server), 56);
  EXPECT_EQ(dns_->CountAN(), 2);
}

TEST_F(ZoneTransfer, TenSecondsAreForEachSilence) {
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
                      const std::string stream = StreamOf({{SoaRecord(), HostRecord(1)}}, query);
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

}  // namespace
}  // namespace netro
