// How the caller ends a query of QueryDNSCLS, from the loop and from other threads, wherever it
// waits; deleting the object; and what else may be done meanwhile.

#include <gtest/gtest.h>
#include <netro/QueryDNSCLS.h>

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

using peers::DnsReply;
using peers::DnsServer;
using peers::SocksRules;
using peers::SocksServer;
using std::chrono::milliseconds;

DnsServer::Replies AnswerWell(const std::string& query) {
  return {DnsReply(query).Answer(HostRecord(1)).Bytes()};
}

// Over UDP.
class QueryDnsWaiting : public testing::Test {
 protected:
  QueryDnsWaiting() { PointAt(*dns_, server_.Port()); }

  // Runs the query; `action` is called from the loop once it has been sent.
  std::int16_t QueryAndMeanwhile(std::function<void()> action) {
    PostWhen([this] { return server_.QueryCount() > 0; }, std::move(action));
    return dns_->QueryDNS(&flags_[0], &flags_[1]);
  }

  DnsServer server_{KeepSilent};
  std::unique_ptr<QueryDNSCLS> dns_ = std::make_unique<QueryDNSCLS>();
  bool flags_[2] = {};
};

TEST_F(QueryDnsWaiting, StopsFromTheLoop) {
  for (const auto stop : {&QueryDNSCLS::StopWaiting, &QueryDNSCLS::Kill}) {
    EXPECT_EQ(QueryAndMeanwhile([&] { (dns_.get()->*stop)(); }), 9999);
    EXPECT_EQ(dns_->LastErr(), 9999);
    EXPECT_EQ(dns_->LastErrMsg(), "Command Canceled");
  }
}

TEST_F(QueryDnsWaiting, StopsFromAnotherThread) {
  std::thread other([&] {
    EXPECT_TRUE(server_.AwaitQueries(1));
    dns_->StopWaiting();
  });
  EXPECT_EQ(dns_->QueryDNS(), 9999);
  other.join();
}

TEST_F(QueryDnsWaiting, StopOfBeforeIsNotOneOfNow) {
  DnsServer server(AnswerWell);
  PointAt(*dns_, server.Port());
  dns_->StopWaiting();
  dns_->Kill();
  EXPECT_EQ(dns_->QueryDNS(), 0);
}

TEST_F(QueryDnsWaiting, StopInThePauseGivesTheLastResult) {
  dns_->RetryCount(2);
  dns_->RetryPauseMilliSeconds(3'600'000);
  for (const bool fromThread : {false, true}) {
    const TimePoint end = Now() + milliseconds(2000);
    const RunningClock clock([] { return true; }, milliseconds(2000));
    std::thread other;
    PostWhen([=] { return Now() >= end; },
             [&] {
               if (!fromThread) return dns_->StopWaiting();
               other = std::thread([&] { dns_->StopWaiting(); });
             });
    EXPECT_EQ(dns_->QueryDNS(), 10002);
    EXPECT_EQ(dns_->LastErr(), 10002);
    if (other.joinable()) other.join();
  }
  EXPECT_EQ(server_.Queries().size(), 2u);
}

TEST_F(QueryDnsWaiting, DeletionInsideIsSafe) {
  EXPECT_EQ(QueryAndMeanwhile([&] { dns_.reset(); }), 9999);
  EXPECT_EQ(dns_, nullptr);
}

TEST_F(QueryDnsWaiting, DeletionInThePauseIsSafe) {
  dns_->RetryCount(2);
  dns_->RetryPauseMilliSeconds(3'600'000);
  const TimePoint end = Now() + milliseconds(2000);
  const RunningClock clock([] { return true; }, milliseconds(2000));
  PostWhen([=] { return Now() >= end; }, [&] { dns_.reset(); });
  dns_->QueryDNS(&flags_[0], &flags_[1]);
  EXPECT_EQ(dns_, nullptr);
}

TEST_F(QueryDnsWaiting, AnotherQueryInsideIsRefused) {
  std::vector<std::int16_t> inner;
  std::string outBuffer;
  QueryAndMeanwhile([&] {
    const std::int32_t before = dns_->LastErr();
    const std::string text = dns_->LastErrMsg();
    bool flags[] = {true, true};
    inner = {dns_->QueryDNS(&flags[0], &flags[1]), dns_->QueryZone()};
    EXPECT_EQ(dns_->LastErr(), before);
    EXPECT_EQ(dns_->LastErrMsg(), text);
    EXPECT_TRUE(flags[0] && flags[1]);
    dns_->StopWaiting();
  });
  EXPECT_EQ(inner, (std::vector<std::int16_t>{10036, 10036}));
  EXPECT_EQ(dns_->LastErr(), 9999);
  EXPECT_EQ(server_.Queries().size(), 1u);
}

TEST_F(QueryDnsWaiting, OtherObjectsCanAsk) {
  DnsServer good(AnswerWell);
  QueryDNSCLS other;
  PointAt(other, good.Port());
  EXPECT_EQ(QueryAndMeanwhile([&] {
              EXPECT_EQ(other.QueryDNS(), 0);
              dns_->StopWaiting();
            }),
            9999);
  EXPECT_EQ(other.CountAN(), 1);
}

TEST_F(QueryDnsWaiting, SettingsChangedInsideAreForTheNextQuery) {
  DnsServer other(AnswerWell);
  dns_->RetryCount(2);
  dns_->RetryPauseMilliSeconds(0);
  bool changed = false;
  const RunningClock clock([&] { return changed; });
  EXPECT_EQ(QueryAndMeanwhile([&] {
              PointAt(*dns_, other.Port(), TYPE_MX, "other.test");
              dns_->UseUDP(false);
              changed = true;
            }),
            10002);
  changed = false;
  EXPECT_EQ(server_.Queries(), std::vector(2, dns_->OutBuffer()));
  EXPECT_EQ(dns_->QueryDNS(), 0);
  EXPECT_EQ(other.Connections(), 1u);
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
