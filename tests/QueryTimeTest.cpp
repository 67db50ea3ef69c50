// QueryTimeCLS over UDP on ports other than SNTP's: the time protocol, which replies count, the
// name of a secondary's reference, time-outs, and how the caller ends a query.

#include <gtest/gtest.h>
#include <netro/MessageLoop.h>
#include <netro/QueryTimeCLS.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DnsTestKit.h"
#include "SystemRoot.h"
#include "platform/Clock.h"
#include "support/DateText.h"
#include "tests/peers/BytesServer.h"
#include "tests/peers/DatagramServer.h"
#include "tests/peers/SocksServer.h"
#include "tests/peers/TimeReply.h"

namespace netro {
namespace {

using namespace std::string_literals;
using peers::Big32;
using peers::DatagramServer;
using peers::DnsReply;
using peers::DnsServer;
using peers::TimeReply;
using std::chrono::milliseconds;
using From = DatagramServer::From;

constexpr std::uint32_t kStampOf2000 = 3'155'673'600;
constexpr char k2000[] = "2000-01-01T00:00:00.000Z";

DatagramServer::Answer Always(DatagramServer::Replies replies) {
  return [=](const std::string&) { return replies; };
}

// A secondary server's reply; its reference is 192.0.2.7.
std::string Secondary() {
  return TimeReply().Stratum(2).Id("\xC0\0\x02\x07"s).Transmit(kStampOf2000).Bytes();
}

class QueryTime : public testing::Test {
 protected:
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

TEST_F(QueryTime, LengthDecidesHowAReplyIsRead) {
  constexpr char kLength[] = "Time server sent a reply of unexpected length.";
  const struct {
    std::string reply;
    std::int32_t error;
    const char* text;
  } kCases[] = {{"", 100003, kLength},
                {"123", 100003, kLength},
                {Big32(0), 100002, "Time server sent a zero time."},
                {"12345", 100003, kLength},
                {Secondary().substr(1), 100003, kLength},
                {TimeReply().Bytes(), 100000, "Time server sent no usable transmit time."},
                {Secondary() + '\0', 100003, kLength},
                {std::string(65'507, '1'), 100003, kLength}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.reply.size());
    DatagramServer good(
        Always({TimeReply().Leap(3).Stratum(1).Id("GPS").Transmit(kStampOf2000).Bytes()}));
    EXPECT_TRUE(Ask(good));
    EXPECT_EQ(time_->SNTPreferenceID(), "GPS");
    // Nothing of it is left over.
    DatagramServer server(Always({c.reply}));
    EXPECT_FALSE(Ask(server));
    ExpectError(c.error, c.text);
    EXPECT_EQ(time_->DateTime(), 0);
    EXPECT_EQ(time_->SNTPDifference(), 0);
    EXPECT_EQ(time_->SNTPLeapIndicator(), SNTPLeapIndicatorEnum::NoWarning);
    EXPECT_EQ(time_->SNTPreferenceID(), "");
    EXPECT_EQ(time_->SNTPPreferenceID(), "");
  }
}

TEST_F(QueryTime, EveryFieldIsAProperty) {
  const TimeReply reply = TimeReply().Leap(2).Mode(5).Stratum(1).Poll(6).Precision(236).Id("PPS");
  DatagramServer server([&](const std::string&) -> DatagramServer::Replies {
    TimeReply copy = reply;
    return {
        copy.RootDelay(16).RootDispersion(32).Receive(kStampOf2000).Transmit(kStampOf2000).Bytes()};
  });
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->SNTPLeapIndicator(), SNTPLeapIndicatorEnum::LastMinute59);
  EXPECT_EQ(time_->SNTPMode(), SNTPModeEnum::Broadcast);
  EXPECT_EQ(time_->SNTPStratum(), SNTPStratumEnum::PrimaryReference);
  EXPECT_EQ(time_->SNTPPollInterval(), 64);
  EXPECT_EQ(time_->SNTPPrecision(), 0x1p236);
  EXPECT_EQ(time_->SNTPRootDelay(), 1);
  EXPECT_EQ(time_->SNTPRootDispersion(), 2);
  EXPECT_EQ(time_->SNTPreferenceID(), "PPS");
  EXPECT_EQ(time_->SNTPPreferenceID(), "PPS");
  EXPECT_EQ(time_->SNTPKissCode(), "");
  EXPECT_LT(time_->SNTPOffset(), -800'000'000);
  EXPECT_GT(time_->SNTPDelay(), 0);
  EXPECT_LT(time_->SNTPDelay(), 5);

  DatagramServer kisses(Always({TimeReply().Id("DENY").Transmit(kStampOf2000).Bytes()}));
  EXPECT_TRUE(Ask(kisses));
  EXPECT_EQ(time_->SNTPStratum(), SNTPStratumEnum::Unspecified);
  EXPECT_EQ(time_->SNTPKissCode(), "DENY");
  EXPECT_EQ(time_->SNTPreferenceID(), "");
}

TEST_F(QueryTime, HalfTheRoundTripCounts) {
  const auto slowly = [](std::string reply) {
    return [=](const std::string&) -> DatagramServer::Replies {
      AdvanceClockForTests(milliseconds(5'000));
      return {reply};
    };
  };
  DatagramServer four(slowly(Big32(kStampOf2000)));
  EXPECT_TRUE(Ask(four));
  EXPECT_GE(time_->SNTPRoundTripDelay(), 5);
  EXPECT_LT(time_->SNTPRoundTripDelay(), 10);
  EXPECT_EQ(time_->DateTime(),
            AddSeconds(*TextToDate(k2000), std::floor(time_->SNTPRoundTripDelay() / 2)));

  DatagramServer sntp(slowly(TimeReply().Stratum(1).Transmit(kStampOf2000).Bytes()));
  EXPECT_TRUE(Ask(sntp));
  EXPECT_GE(time_->SNTPRoundTripDelay(), 5);
  EXPECT_LT(time_->SNTPRoundTripDelay(), 10);
  EXPECT_EQ(time_->DateTime(), AddSeconds(*TextToDate(k2000), -time_->SNTPRoundTripDelay() / 2));
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

TEST_F(QueryTime, WaitsForTheSecondsOfTheTimeout) {
  for (const int seconds : {-1, 0, 1, 7, 60}) {
    SCOPED_TRACE(seconds);
    DatagramServer silent(Always({}));
    time_->Timeout(static_cast<std::int16_t>(seconds));
    const RunningClock clock([&] { return silent.Count() > 0; });
    const TimePoint before = Now();
    EXPECT_FALSE(Ask(silent));
    ExpectError(10002, "Command Timed Out");
    const auto whole = std::chrono::seconds(std::max(seconds, 0));
    EXPECT_GE(Now() - before, whole);
    EXPECT_LT(Now() - before, whole + std::chrono::seconds(4));
  }
}

TEST_F(QueryTime, SettingsThatCannotBe) {
  const struct {
    const char* server;
    std::int32_t port;
    bool useUDP;
    std::int32_t error;
  } kCases[] = {{"127.0.0.1", 0, true, 10022},
                {"127.0.0.1", -1, false, 10022},
                {"127.0.0.1", 65'536, true, 10022},
                {"127.0.0.1", 65'536, false, 10022},
                {"", 37, true, 11001},
                {"", 37, false, 11001},
                {"255.255.255.255", 37, true, 11001},
                {"a..test", 37, true, 11001},
                {"a..test", 37, false, 11001}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.server + ":"s + std::to_string(c.port));
    time_->Server(c.server);
    time_->Port(c.port);
    time_->UseUDP(c.useUDP);
    EXPECT_FALSE(time_->QueryTime());
    EXPECT_EQ(time_->LastErr(), c.error);
    EXPECT_EQ(time_->LastErrMsg(), time_->TranslateLastErrNr(c.error));
    EXPECT_EQ(time_->DateTime(), 0);
  }
}

TEST_F(QueryTime, ProxySettingsAreForTcp) {
  time_->ProxyType(static_cast<TimeProxyTypeEnum>(4));
  DatagramServer server(Always({Big32(kStampOf2000)}));
  EXPECT_TRUE(Ask(server));
  time_->ProxyType(TimeProxySocks4);
  EXPECT_TRUE(Ask(server));

  time_->UseUDP(false);
  EXPECT_FALSE(Ask(server)) << "a proxy without a name";
  EXPECT_EQ(time_->LastErr(), 10022);
  time_->ProxyURL("127.0.0.1");
  time_->ProxyType(static_cast<TimeProxyTypeEnum>(4));
  EXPECT_FALSE(Ask(server));
  EXPECT_EQ(time_->LastErr(), 10022);
}

TEST_F(QueryTime, ServerMayBeAName) {
  SystemRoot root;
  root.Put("etc/hosts", "127.0.0.1 clock.test\n");
  DatagramServer server(Always({Big32(kStampOf2000)}));
  time_->Server("clock.test");
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->GetDNSCacheCount(), 1);
}

DnsServer::Replies NameOfReference(const std::string& query) {
  return {DnsReply(query)
              .Answer(peers::dns::Record(peers::dns::kQuestion, TYPE_PTR,
                                         peers::dns::Name("upper.test")))
              .Bytes()};
}

TEST_F(QueryTime, ReferenceOfASecondaryHasItsName) {
  SystemRoot root;
  DatagramServer server(Always({Secondary()}));
  DnsServer dns(NameOfReference);
  time_->DNSURL("127.0.0.1:" + std::to_string(dns.Port()));
  for (int query = 0; query < 2; ++query) {
    EXPECT_TRUE(Ask(server));
    EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7 (upper.test)");
    EXPECT_EQ(time_->SNTPPreferenceID(), "192.0.2.7 (upper.test)");
  }
  EXPECT_EQ(dns.Queries().size(), 1u) << "the second time from the cache";

  time_->SNTPVersion(4);
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->SNTPreferenceID(), "2002-01-28T16:59:51.000Z");

  time_->SNTPVersion(3);
  time_->ClearDNSCache();
  root.Put("etc/hosts", "192.0.2.7 Hosts.test other\n");
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7 (Hosts.test)");
  EXPECT_EQ(dns.Queries().size(), 1u);
}

TEST_F(QueryTime, ReferenceWithoutANameIsItsAddress) {
  const SystemRoot root;
  DatagramServer server(Always({Secondary()}));
  DnsServer dns([](const std::string& query) -> DnsServer::Replies {
    return {DnsReply(query).Code(3).Bytes()};
  });
  for (const std::string& servers : {"127.0.0.1:" + std::to_string(dns.Port()), "no:server"s}) {
    time_->DNSURL(servers);
    EXPECT_TRUE(Ask(server)) << time_->LastErrMsg();
    EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7 ()");
    EXPECT_NE(time_->DateTime(), 0);
  }
}

TEST_F(QueryTime, LookingTheReferenceUpChangesNoTime) {
  const SystemRoot root;
  DatagramServer server(Always({Secondary()}));
  DnsServer dns([](const std::string& query) {
    AdvanceClockForTests(milliseconds(200));
    return NameOfReference(query);
  });
  time_->DNSURL("127.0.0.1:" + std::to_string(dns.Port()));
  const TimePoint before = Now();
  EXPECT_TRUE(Ask(server));
  EXPECT_GE(Now() - before, milliseconds(200));
  EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7 (upper.test)");
  EXPECT_LT(time_->SNTPRoundTripDelay(),
            std::chrono::duration<double>(Now() - before - milliseconds(199)).count());
  EXPECT_EQ(time_->DateTime(), AddSeconds(*TextToDate(k2000), -time_->SNTPRoundTripDelay() / 2));
}

TEST_F(QueryTime, LookingTheReferenceUpTakesASecondAtMostAndOnlyWhenItIsWanted) {
  const SystemRoot root;
  DatagramServer server(Always({Secondary()}));
  DnsServer dns([](const std::string&) -> DnsServer::Replies { return {}; });
  std::string servers;  // more than can be asked in the time
  for (int i = 0; i < 40; ++i) servers += "127.0.0.1:" + std::to_string(dns.Port()) + ",";
  time_->DNSURL(servers);
  time_->SNTPReferenceName(false);
  EXPECT_TRUE(Ask(server));
  EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7");
  EXPECT_EQ(dns.QueryCount(), 0u);

  time_->SNTPReferenceName(true);
  const RunningClock clock([&] { return dns.QueryCount() > 0; });
  const TimePoint before = Now();
  EXPECT_TRUE(Ask(server));
  EXPECT_GE(Now() - before, std::chrono::seconds(1));
  EXPECT_LT(Now() - before, std::chrono::seconds(5));
  EXPECT_EQ(time_->SNTPreferenceID(), "192.0.2.7 ()");
  EXPECT_EQ(time_->LastErr(), 0);
}

// The reply lies in the system for a second while this thread does something else.
TEST_F(QueryTime, TheRoundTripEndsWhenTheReplyComes) {
  DatagramServer server(Always({TimeReply().Stratum(1).Transmit(kStampOf2000).Bytes()}));
  MessageLoop::ForThisThread().PostTask([&] {
    std::binary_semaphore never(0);
    for (int i = 0; i < 500 && server.Count() == 0; ++i) never.try_acquire_for(milliseconds(10));
    never.try_acquire_for(milliseconds(1000));
  });
  const TimePoint before = Now();
  EXPECT_TRUE(Ask(server));
  EXPECT_LT(time_->SNTPRoundTripDelay(),
            std::chrono::duration<double>(Now() - before).count() - 0.5);
}

TEST_F(QueryTime, NamesAndTheirCache) {
  SystemRoot root;
  root.Put("etc/hosts", "192.0.2.9 host.test\n");
  EXPECT_TRUE(time_->IsIPNumber("192.0.2.9"));
  EXPECT_FALSE(time_->IsIPNumber("host.test"));
  EXPECT_FALSE(time_->IsIPNumber("255.255.255.255"));
  EXPECT_EQ(time_->DNSLookup("host.test"), "192.0.2.9");
  EXPECT_EQ(time_->LastErr(), 0);
  EXPECT_EQ(time_->DNSLookup("192.0.2.9"), "host.test");
  EXPECT_EQ(time_->GetDNSCacheCount(), 2);
  EXPECT_EQ(time_->SaveDNSCache(root.Path("cache.ini")), 2);
  time_->ClearDNSCache();
  EXPECT_EQ(time_->GetDNSCacheCount(), 0);
  EXPECT_EQ(time_->RestoreDNSCache(root.Path("cache.ini")), 2);
  root.Remove("etc/hosts");
  EXPECT_EQ(time_->DNSLookup("host.test"), "192.0.2.9");

  EXPECT_EQ(time_->DNSLookup(""), "");
  ExpectError(59, "No DNS Entries found.");
}

// A query that is waiting for something, until the test ends it.
struct Scene {
  std::shared_ptr<void> peers;
  std::function<bool()> reached;
};

struct Place {
  const char* name;
  std::function<Scene(QueryTimeCLS& time)> prepare;
};

Scene WaitForDatagram(QueryTimeCLS& time) {
  auto server = std::make_shared<DatagramServer>(Always({}));
  time.Port(server->Port());
  return {server, [=] { return server->Count() > 0; }};
}

std::shared_ptr<DnsServer> SilentDns(QueryTimeCLS& time) {
  auto dns = std::make_shared<DnsServer>([](const auto&) { return DnsServer::Replies(); });
  time.DNSURL("127.0.0.1:" + std::to_string(dns->Port()));
  return dns;
}

Scene WaitForAddress(QueryTimeCLS& time) {
  auto dns = SilentDns(time);
  time.Server("clock.test");
  return {dns, [=] { return dns->QueryCount() > 0; }};
}

Scene WaitForReference(QueryTimeCLS& time) {
  auto dns = SilentDns(time);
  auto server = std::make_shared<DatagramServer>(Always({Secondary()}));
  time.Port(server->Port());
  return {std::make_shared<std::pair<decltype(dns), decltype(server)>>(dns, server),
          [=] { return dns->QueryCount() > 0; }};
}

Scene WaitForConnection(QueryTimeCLS& time) {
  auto full = std::make_shared<peers::HangingPort>();
  time.UseUDP(false);
  time.Port(full->Port());
  return {full, [] { return true; }};
}

Scene WaitForStream(QueryTimeCLS& time) {
  auto server = std::make_shared<peers::BytesServer>(
      std::vector<peers::Script>{{peers::Send("12"), peers::Stay()}});
  time.UseUDP(false);
  time.Port(server->Port());
  return {server, [=] { return server->Connections() > 0; }};
}

Scene WaitForProxy(QueryTimeCLS& time) {
  peers::SocksRules rules;
  rules.silentAt = 0;
  auto proxy = std::make_shared<peers::SocksServer>(rules);
  time.UseUDP(false);
  time.Port(37);
  time.ProxyType(TimeProxySocks5NoAuth);
  time.ProxyURL("127.0.0.1");
  time.ProxyPort(proxy->Port());
  return {proxy, [=] { return !proxy->Requests().empty(); }};
}

const Place kPlaces[] = {{"a datagram", WaitForDatagram},
                         {"the server's address", WaitForAddress},
                         {"the reference's name", WaitForReference},
                         {"the connection", WaitForConnection},
                         {"the stream", WaitForStream},
                         {"the proxy", WaitForProxy}};

class EndOfQueryTime : public QueryTime {
 protected:
  // Ends a query in each place by `end`; without an object afterwards it has been deleted.
  void EndEverywhere(const std::function<void()>& end) {
    for (const Place& place : kPlaces) {
      SCOPED_TRACE(place.name);
      time_ = std::make_unique<QueryTimeCLS>();
      time_->Server("127.0.0.1");
      const SystemRoot root;
      const Scene scene = place.prepare(*time_);
      PostWhen(scene.reached, end);
      EXPECT_FALSE(time_->QueryTime());
      if (thread_.joinable()) thread_.join();
      if (!time_) continue;
      ExpectError(9999, "Command Canceled");
      ExpectWorks();
    }
  }

  // What ended a query does not end the next one.
  void ExpectWorks() {
    DatagramServer server(Always({Big32(kStampOf2000)}));
    time_->Server("127.0.0.1");
    time_->UseUDP(true);
    EXPECT_TRUE(Ask(server)) << time_->LastErrMsg();
  }

  std::thread thread_;
};

TEST_F(EndOfQueryTime, InEachPlace) {
  EndEverywhere([&] { time_->StopWaiting(); });
  EndEverywhere([&] { thread_ = std::thread([&] { time_->Kill(); }); });
  EndEverywhere([&] { time_.reset(); });
}

TEST_F(EndOfQueryTime, MeanwhileOtherCallsAreRefusedAndOtherObjectsWork) {
  EndEverywhere([&] {
    const std::int32_t error = time_->LastErr();
    EXPECT_FALSE(time_->QueryTime());
    EXPECT_EQ(time_->DNSLookup("localhost"), "");
    EXPECT_EQ(time_->LastErr(), error);
    DatagramServer server(Always({Big32(kStampOf2000)}));
    QueryTimeCLS other;
    other.Server("127.0.0.1");
    other.Port(server.Port());
    EXPECT_TRUE(other.QueryTime());
    time_->StopWaiting();
  });
}

TEST_F(EndOfQueryTime, DeletionWhenTheReplyIsThere) {
  DatagramServer server(Always({Secondary()}));
  DnsServer dns(NameOfReference);
  const SystemRoot root;
  time_->DNSURL("127.0.0.1:" + std::to_string(dns.Port()));
  time_->Port(server.Port());
  PostWhen([&] { return dns.Queries().size() == 1; }, [&] { time_.reset(); });
  EXPECT_FALSE(time_->QueryTime());
}

}  // namespace
}  // namespace netro
