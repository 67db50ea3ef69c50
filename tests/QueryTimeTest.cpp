// QueryTimeCLS over UDP on ports other than SNTP's, and the name of a secondary's reference.
#include <netro/QueryTimeCLS.h>
#include <netro/testkit/TimeReply.h>

#include <cmath>

#include "DnsTestKit.h"
#include "support/DateText.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

using From = DatagramServer::From;

constexpr char kHere[] = "127.0.0.1:";

DatagramServer::Answer Always(DatagramServer::Replies replies) {
  return [=](const std::string&) { return replies; };
}

std::string Secondary() { return testkit::SecondaryReply().Bytes(); }

struct QueryTime : testing::Test {
  QueryTime() {
    time_->Server("127.0.0.1");
    time_->DNSURL("127.0.0.1:1");
    time_->ClearDNSCache();
  }

  bool Ask(const DatagramServer& server) {
    time_->Port(server.Port());
    return time_->QueryTime();
  }

  void ExpectError(std::int32_t number, const std::string& text) {
    EXPECT_EQ(time_->LastErr(), number);
    EXPECT_EQ(time_->LastErrMsg(), text);
    EXPECT_EQ(time_->TranslateLastErrNr(number), text);
  }

  std::unique_ptr<QueryTimeCLS> time_ = std::make_unique<QueryTimeCLS>();
};

TEST_F(QueryTime, AnEmptyDatagramAsksForFourBytes) {
  for (const std::int32_t version : {3, 4}) {
    DatagramServer server(Always({Big32(kStampOf2000)}));
    time_->SNTPVersion(version);
    time_->ProxyType(static_cast<TimeProxyTypeEnum>(version + 1));  // is for TCP
    EXPECT_TRUE(Ask(server));
    EXPECT_EQ(server.Received(), std::vector{""s});
    EXPECT_EQ(DateToText(time_->DateTime()), k2000);
    EXPECT_GT(time_->SNTPDifference(), 800'000'000);
    EXPECT_GT(time_->SNTPRoundTripDelay(), 0);
    EXPECT_LT(time_->SNTPRoundTripDelay(), 5);
    EXPECT_EQ(time_->SNTPMode(), SNTPModeEnum::Unknown);
    EXPECT_EQ(time_->LastErr(), 0);
    EXPECT_EQ(time_->LastErrMsg(), "");
  }
}

// Which lengths and times are good is in TimeMessageTest.
TEST_F(QueryTime, AFailureLeavesNothingOfAnEarlierReply) {
  const std::tuple<std::string, std::int32_t, const char*> kCases[] = {
      {"", 100003, "Time server sent a reply of unexpected length."},
      {std::string(65'507, '1'), 100003, "Time server sent a reply of unexpected length."},
      {Big32(0), 100002, "Time server sent a zero time."},
      {TimeReply().Bytes(), 100000, "Time server sent no usable transmit time."}};
  for (const auto& [reply, error, text] : kCases) {
    SCOPED_TRACE(text);
    DatagramServer good(
        Always({TimeReply().Leap(3).Stratum(1).Id("GPS").Transmit(kStampOf2000).Bytes()}));
    EXPECT_TRUE(Ask(good));
    EXPECT_EQ(time_->SNTPreferenceID(), "GPS");
    DatagramServer server(Always({reply}));
    EXPECT_FALSE(Ask(server));
    ExpectError(error, text);
    EXPECT_EQ(time_->DateTime(), 0);
    EXPECT_EQ(time_->SNTPDifference(), 0);
    EXPECT_EQ(time_->SNTPLeapIndicator(), SNTPLeapIndicatorEnum::NoWarning);
    EXPECT_EQ(time_->SNTPreferenceID(), "");
  }
}

// The other fields are in TimeMessageTest, and all properties in the tests of the command.
TEST_F(QueryTime, AnSntpReplyMayComeFromAnyPort) {
  DatagramServer server(
      Always({TimeReply().Id("DENY").Receive(kStampOf2000).Transmit(kStampOf2000).Bytes()}));
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->SNTPStratum(), SNTPStratumEnum::Unspecified);
  EXPECT_EQ(time_->SNTPKissCode(), "DENY");
  EXPECT_EQ(time_->SNTPPreferenceID(), time_->SNTPreferenceID());
  EXPECT_GT(time_->SNTPDelay(), 0);
  EXPECT_LT(time_->SNTPDelay(), 5);
}

TEST_F(QueryTime, HalfTheRoundTripCounts) {
  const std::string sntp = TimeReply().Stratum(1).Transmit(kStampOf2000).Bytes();
  for (const std::string& reply : {Big32(kStampOf2000), sntp}) {
    DatagramServer slow([&](const std::string&) -> DatagramServer::Replies {
      AdvanceClockForTests(milliseconds(5'000));
      return {reply};
    });
    EXPECT_TRUE(Ask(slow));
    const double trip = time_->SNTPRoundTripDelay();
    EXPECT_GE(trip, 5);
    EXPECT_LT(trip, 10);
    EXPECT_EQ(time_->DateTime(),
              AddSeconds(*TextToDate(k2000), reply == sntp ? -trip / 2 : std::floor(trip / 2)));
  }
}

TEST_F(QueryTime, OnlyTheServerAskedIsHeard) {
  const std::string forged = Big32(1);
  DatagramServer server(
      Always({{forged, From::kOtherPort}, {forged, From::kOtherAddress}, Big32(kStampOf2000)}));
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(DateToText(time_->DateTime()), k2000);

  DatagramServer silent(Always({{forged, From::kOtherPort}, {forged, From::kOtherAddress}}));
  const RunningClock clock([&] { return silent.Count() > 0; });
  EXPECT_FALSE(Ask(silent));
  ExpectError(10002, "Command Timed Out");
}

TEST_F(QueryTime, SettingsThatCannotBe) {
  DatagramServer good(Always({Big32(kStampOf2000)}));
  EXPECT_TRUE(Ask(good)) << "of which nothing is left";
  const std::tuple<const char*, std::int32_t, std::int32_t> kCases[] = {
      {"127.0.0.1", 0, 10022}, {"127.0.0.1", -1, 10022},       {"127.0.0.1", 65'536, 10022},
      {"", 37, 11001},         {"255.255.255.255", 37, 11001}, {"a..test", 37, 11001}};
  for (const auto& [server, port, error] : kCases)
    for (const bool udp : {true, false}) {
      SCOPED_TRACE(server + ":"s + std::to_string(port));
      if (!udp && server == "255.255.255.255"s) continue;
      time_->Server(server);
      time_->Port(port);
      time_->UseUDP(udp);
      EXPECT_FALSE(time_->QueryTime());
      EXPECT_EQ(time_->LastErr(), error);
      EXPECT_EQ(time_->LastErrMsg(), time_->TranslateLastErrNr(error));
      EXPECT_EQ(time_->DateTime(), 0);
    }
}

DnsServer::Replies NameOfReference(const std::string& query) {
  return {DnsReply(query)
              .Answer(testkit::dns::Record(testkit::dns::kQuestion, TYPE_PTR,
                                         testkit::dns::Name("upper.test")))
              .Bytes()};
}

TEST_F(QueryTime, ReferenceOfASecondaryHasItsName) {
  SystemRoot root;
  DatagramServer server(Always({Secondary()}));
  DnsServer dns([](const std::string& query) {
    AdvanceClockForTests(milliseconds(200));  // is no part of the round trip
    return NameOfReference(query);
  });
  time_->DNSURL(kHere + std::to_string(dns.Port()));
  for (const milliseconds lookup : {milliseconds(199), milliseconds(0)}) {
    const TimePoint before = Now();
    EXPECT_TRUE(Ask(server));
    EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7 (upper.test)");
    const double trip = time_->SNTPRoundTripDelay();
    EXPECT_LE(trip, std::chrono::duration<double>(Now() - before - lookup).count());
    EXPECT_EQ(time_->DateTime(), AddSeconds(*TextToDate(k2000), -trip / 2));
  }
  EXPECT_EQ(dns.Queries().size(), 1u) << "the second time from the cache";

  time_->SNTPVersion(4);
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->SNTPreferenceID(), "2002-01-28T16:59:51.000Z");
  time_->SNTPVersion(3);

  DnsServer unknown(Replying([](DnsReply& reply) { reply.Code(3); }));
  for (const std::string& servers : {kHere + std::to_string(unknown.Port()), "no:server"s}) {
    time_->ClearDNSCache();
    time_->DNSURL(servers);
    EXPECT_TRUE(Ask(server)) << time_->LastErrMsg();
    EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7 ()");
  }
  time_->ClearDNSCache();
  root.Put("etc/hosts", "192.0.2.7 Hosts.test other\n");
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7 (Hosts.test)");
}

TEST_F(QueryTime, LookingTheReferenceUpTakesASecondAtMostAndOnlyWhenItIsWanted) {
  const SystemRoot root;
  DatagramServer server(Always({Secondary()}));
  DnsServer dns([](const std::string&) -> DnsServer::Replies { return {}; });
  std::string servers;  // more than can be asked in the time
  for (int i = 0; i < 40; ++i) servers += kHere + std::to_string(dns.Port()) + ",";
  time_->DNSURL(servers);
  time_->SNTPReferenceName(false);
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7");
  EXPECT_EQ(dns.QueryCount(), 0u);

  time_->SNTPReferenceName(true);
  const RunningClock clock([&] { return dns.QueryCount() > 0; });
  const Takes time(std::chrono::seconds(1), std::chrono::seconds(5));
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7 ()");
  EXPECT_EQ(time_->LastErr(), 0);
}

// The reply lies in the system for a second while this thread does something else. The system turns
// its stamps on a while after the first socket wants them, later when it has much to do.
TEST_F(QueryTime, TheRoundTripEndsWhenTheReplyComes) {
  const auto stamps = WithArrivalTimes();
  DatagramServer server(Always({TimeReply().Stratum(1).Transmit(kStampOf2000).Bytes()}));
  bool endsEarly = false;
  for (std::size_t i = 0; i < 5 && !endsEarly; ++i) {
    MessageLoop::ForThisThread().PostTask([&, i] {
      for (int turn = 0; turn < 500 && server.Count() == i; ++turn)
        std::this_thread::sleep_for(milliseconds(10));
      std::this_thread::sleep_for(seconds(1));
    });
    const TimePoint before = Now();
    EXPECT_TRUE(Ask(server));
    const std::chrono::duration<double> whole = Now() - before;
    endsEarly = time_->SNTPRoundTripDelay() < whole.count() - 0.5;
  }
  EXPECT_TRUE(endsEarly);
}

TEST_F(QueryTime, NamesAndTheirCache) {
  SystemRoot root;
  root.Put("etc/hosts", "192.0.2.9 host.test\n127.0.0.1 clock.test\n");
  DatagramServer server(Always({Big32(kStampOf2000)}));
  time_->Server("clock.test");
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->GetDNSCacheCount(), 1);
  time_->ClearDNSCache();
  EXPECT_EQ(time_->DNSLookup("host.test"), "192.0.2.9");
  EXPECT_EQ(time_->LastErr(), 0);
  EXPECT_EQ(time_->DNSLookup("192.0.2.9"), "host.test");
  EXPECT_EQ(time_->SaveDNSCache(root.Path("cache.ini")), 2);
  time_->ClearDNSCache();
  EXPECT_EQ(time_->GetDNSCacheCount(), 0);
  EXPECT_EQ(time_->RestoreDNSCache(root.Path("cache.ini")), 2);
  EXPECT_EQ(time_->DNSLookup(""), "");
  ExpectError(59, "No DNS Entries found.");
}

TEST_F(QueryTime, DeletionWhenTheReplyIsThere) {
  DatagramServer server(Always({Secondary()}));
  DnsServer dns(NameOfReference);
  const SystemRoot root;
  time_->DNSURL(kHere + std::to_string(dns.Port()));
  time_->Port(server.Port());
  PostWhen([&] { return dns.Queries().size() == 1; }, [&] { time_.reset(); });
  EXPECT_FALSE(time_->QueryTime());
}

}  // namespace
}  // namespace netro
