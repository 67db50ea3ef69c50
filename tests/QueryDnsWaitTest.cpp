// How the caller ends a query of QueryDNSCLS, wherever it waits, and what may be done meanwhile.

#include "DnsTestKit.h"
#include "tests/peers/SocksServer.h"

namespace netro {
namespace {

using namespace peers;

const DnsServer::Answer kAnswer = Replying([](auto& reply) { reply.Answer(HostRecord(1)); });

// Where a query waits: for a datagram; over TCP for the connection, the proxy, the reply.
class QueryDnsWaiting : public testing::TestWithParam<std::string> {
 protected:
  QueryDnsWaiting() {
    PointAt(*dns_, GetParam() == "Connection" ? full_.Port() : server_.Port());
    dns_->UseUDP(GetParam() == "Datagram");
    dns_->ProxyType(GetParam() == "Proxy" ? DNSProxySocks5NoAuth : NoDNSProxy);
    dns_->ProxyURL("127.0.0.1");
    dns_->ProxyPort(proxy_.Port());
  }

  // Runs the query; `action` is called from the loop once turns of it and connections of the peer
  // tell that it waits.
  std::int16_t QueryAndMeanwhile(std::function<void()> action) {
    auto turns = std::make_shared<int>(0);
    const bool connects = GetParam() == "Connection";
    PostWhen(
        [=, this] {
          return ++*turns > 20 &&
                 (connects || proxy_.Connections() > 0 || server_.QueryCount() > 0);
        },
        std::move(action));
    return dns_->QueryDNS(&flags_[0], &flags_[1]);
  }

  HangingPort full_;
  DnsServer server_{KeepSilent};
  SocksServer proxy_{{.silentAt = 0}};
  std::unique_ptr<QueryDNSCLS> dns_ = std::make_unique<QueryDNSCLS>();
  bool flags_[2] = {};
};

TEST_P(QueryDnsWaiting, EndsAndRefusesAnotherInside) {
  for (const auto stop : {&QueryDNSCLS::StopWaiting, &QueryDNSCLS::Kill}) {
    std::thread other;
    EXPECT_EQ(QueryAndMeanwhile([&] {
                const std::int32_t before = dns_->LastErr();
                bool flags[] = {true, true};
                EXPECT_EQ(dns_->QueryDNS(&flags[0], &flags[1]), 10036);
                EXPECT_EQ(dns_->QueryZone(), 10036);
                EXPECT_EQ(dns_->LastErr(), before);
                EXPECT_TRUE(flags[0] && flags[1]);
                other = std::thread([&] { (dns_.get()->*stop)(); });
              }),
              9999);
    other.join();
    EXPECT_EQ(dns_->LastErr(), 9999);
    EXPECT_EQ(dns_->LastErrMsg(), "Command Canceled");
  }
  EXPECT_EQ(QueryAndMeanwhile([&] { dns_->StopWaiting(); }), 9999);
  EXPECT_EQ(QueryAndMeanwhile([&] { dns_.reset(); }), 9999);
  EXPECT_EQ(dns_, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Places, QueryDnsWaiting,
                         testing::Values("Datagram", "Connection", "Proxy", "Reply"),
                         [](const auto& param) { return param.param; });

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
