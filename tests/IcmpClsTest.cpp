// ICMPCls on loopback: texts, addresses, results, waits. EchoNetworkTest has what needs a network.

#include "DnsTestKit.h"
#include "EchoKit.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

// A label of 64 letters: no resolver asks the network for it.
constexpr char kNoName[] = "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx";

TEST(IcmpTables, Texts) {
  const std::pair<std::int32_t, const char*> cases[] = {
      {9999, "Command Canceled"},       {10000, "Can not find host in DNS"},
      {10002, "Command Timed Out"},     {11001, "Buffer too Small"},
      {11010, "Request Timed Out"},     {11022, "Unload"},
      {11050, "General Failure"},       {0, "Success"},
      {59, "No DNS Entries found."},    {11023, "Unknown Error# 11023."},
      {11049, "Unknown Error# 11049."}, {-11010, "Unknown Error# -11010."},
  };
  const ICMPCls icmp;
  for (const auto& [code, text] : cases) EXPECT_EQ(icmp.GetICMPError(code), text) << code;
}

TEST(IcmpTables, ClassesAndTypesOfAddresses) {
  const std::tuple<const char*, const char*, const char*, std::int32_t> ranges[] = {
      {"", "", "", 0},
      {"host", "1.2.3.256", "E", 0},
      {"0.0.0.0", "0.255.255.255", "A", 0},
      {"1.0.0.0", "9.255.255.255", "A", 1},
      {"10.0.0.0", "10.255.255.255", "A", 2},
      {"11.0.0.0", "100.63.255.255", "A", 1},
      {"100.64.0.0", "100.127.255.255", "A", 2},
      {"100.128.0.0", "126.255.255.255", "A", 1},
      {"127.0.0.0", "127.255.255.255", "A", 3},
      {"128.0.0.0", "169.253.255.255", "B", 1},
      {"169.254.0.0", "169.254.255.255", "B", 4},
      {"169.255.0.0", "172.15.255.255", "B", 1},
      {"172.16.0.0", "172.31.255.255", "B", 2},
      {"172.32.0.0", "191.255.255.255", "B", 1},
      {"192.0.0.0", "192.167.255.255", "C", 1},
      {"192.168.0.0", "192.168.255.255", "C", 2},
      {"192.169.0.0", "223.255.255.255", "C", 1},
      {"224.0.0.0", "239.255.255.255", "D", 5},
      {"240.0.0.0", "255.255.255.254", "E", 0},
      {"255.255.255.255", "255.255.255.255", "E", 6},
  };
  const ICMPCls icmp;
  for (const auto& [first, last, ipClass, type] : ranges)
    for (const char* ip : {first, last}) {
      EXPECT_EQ(icmp.GetIPClass(ip), ipClass) << ip;
      EXPECT_EQ(icmp.GetIPType(ip), type) << ip;
    }
}

TEST(IcmpTables, ServicesOfTheSystem) {
  using namespace std::string_literals;
  const ICMPCls icmp;
  for (const std::int32_t port : {-1, 0, 65'536, 65'616})
    EXPECT_EQ(icmp.GetServiceNameByPort(port), "") << port;
  for (const std::string& name : {""s, "no such service"s, "http\0x"s})
    EXPECT_EQ(icmp.GetServicePortByName(name), 0) << name;
  if (!KnowsServices()) GTEST_SKIP() << "the system has no table of services";
  EXPECT_EQ(icmp.GetServicePortByName("http"), 80);
  EXPECT_EQ(icmp.GetServicePortByName("smtp"), 25);
  EXPECT_EQ(icmp.GetServiceNameByPort(25), "smtp");
  EXPECT_EQ(icmp.GetServicePortByName(icmp.GetServiceNameByPort(80)), 80);
  EXPECT_EQ(icmp.GetServiceNameByPort(69), "") << "tftp is one of UDP";
}

struct Icmp : testing::Test {
  Icmp() { icmp_->Events(&hops_); }

  void ExpectError(std::int32_t number, const std::string& text) {
    EXPECT_EQ(icmp_->LastErr(), number);
    EXPECT_EQ(icmp_->LastErrMsg(), text);
  }

  std::unique_ptr<ICMPCls> icmp_ = std::make_unique<ICMPCls>();
  HopSink hops_;
};

TEST_F(Icmp, AHostThatIsNone) {
  for (const std::string& host :
       {std::string(kNoName), std::string(), std::string("255.255.255.255")}) {
    EXPECT_EQ(icmp_->PingHost(host), -10000) << host;
    ExpectError(-10000, "Can not find host in DNS");
    EXPECT_EQ(icmp_->DNSLastErr(), 59);
    EXPECT_EQ(icmp_->DNSLastErrMsg(), "No DNS Entries found.");
    EXPECT_FALSE(icmp_->TraceRt(host)) << host;
    ExpectError(-10000, "Can not find host in DNS");
    EXPECT_TRUE(hops_.seen.empty());
  }
  icmp_->DNSURL("not:a:server");
  EXPECT_EQ(icmp_->PingHost("host.test"), -10000);
  EXPECT_EQ(icmp_->DNSLastErr(), 10022);
}

TEST_F(Icmp, NamesAreLookedUp) {
  EXPECT_EQ(icmp_->DNSLookup("localhost"), "127.0.0.1");
  EXPECT_EQ(icmp_->DNSLookup(kNoName), "");
  EXPECT_EQ(icmp_->DNSLastErr(), 59);
  EXPECT_EQ(icmp_->LastErr(), 0) << "a look-up is no ping";
}

TEST_F(Icmp, WithoutPermission) {
  const auto without = WithoutRawSockets();
  if (EchoIsPermitted()) GTEST_SKIP() << "the system allows every program an echo";
  EXPECT_EQ(icmp_->PingHost("127.0.0.1"), -10001);
  ExpectError(-10001, "Can not create ICMP handle");
  EXPECT_EQ(icmp_->DNSLastErr(), 0);
  EXPECT_FALSE(icmp_->TraceRt("127.0.0.1"));
  ExpectError(-10001, "Can not create ICMP handle");
  EXPECT_TRUE(hops_.seen.empty());
}

struct IcmpEcho : Icmp {
  void SetUp() override {
    if (!EchoIsPermitted()) GTEST_SKIP() << "the system allows this program no echo";
  }

  // What a call that waits for nobody does when `action` comes from the loop.
  void During(const std::function<void()>& action) {
    MessageLoop::ForThisThread().PostTask(action);
  }
};

TEST_F(IcmpEcho, TheFamilyIsTheCallers) {
  const struct {
    AddressPreferenceEnum preference;
    const char* host;
    const char* answers;  // empty: it has no such address
  } cases[] = {{preferIPv4, "localhost", "127.0.0.1"},
               {onlyIPv4, "localhost", "127.0.0.1"},
               {preferIPv6, "localhost", "::1"},
               {onlyIPv6, "localhost", "::1"},
               {preferIPv4, "::1", "::1"},
               {preferIPv6, "127.0.0.1", "127.0.0.1"},
               {onlyIPv4, "::1", ""},
               {onlyIPv6, "127.0.0.1", ""}};
  for (const auto& c : cases) {
    hops_.seen.clear();
    icmp_->AddressPreference(c.preference);
    EXPECT_EQ(icmp_->TraceRt(c.host), *c.answers != 0) << c.preference << c.host;
    EXPECT_EQ(icmp_->DNSLastErr(), *c.answers != 0 ? 0 : 11004);
    EXPECT_EQ(icmp_->LastErr(), *c.answers != 0 ? 0 : -10000);
    EXPECT_EQ(hops_.seen.empty() ? "" : hops_.seen[0].host, c.answers);
    EXPECT_EQ(icmp_->TRHopCount(), *c.answers != 0 ? 1 : 0);
    EXPECT_EQ(icmp_->TRSumRoundTripTime(), std::exchange(hops_.sum, 0));
  }
}

TEST_F(IcmpEcho, PacketsOfEverySize) {
  for (const std::int32_t size : {-1, 0, 1, 7, 8, 9, 32, 1500, 65'507}) {
    icmp_->PingPacketSize(size);
    EXPECT_GE(icmp_->PingHost("127.0.0.1"), 0) << size;
    EXPECT_GE(icmp_->PingHost("::1"), 0) << size;
  }
  for (const std::int32_t size : {65'508, 2'147'483'647}) {
    icmp_->PingPacketSize(size);
    EXPECT_EQ(icmp_->PingHost("127.0.0.1"), -11009) << size;
    ExpectError(-11009, "Packet too Big");
  }
  EXPECT_EQ(ICMPCls().PingHost("127.255.255.255"), -11050) << "a broadcast address";
}

TEST_F(IcmpEcho, SilenceEndsWithItsTime) {
  icmp_->PingTimeout(700);
  const TimePoint before = Now();
  const RunningClock clock([&] { return Now() - before < milliseconds(700); });
  EXPECT_EQ(icmp_->PingHost(kSilent), -11010);
  EXPECT_GE(Now() - before, milliseconds(700));
  EXPECT_LT(Now() - before, milliseconds(1900));
  ExpectError(-11010, "Request Timed Out");
  for (const std::int32_t time : {0, -5000}) {
    icmp_->PingTimeout(time);
    EXPECT_EQ(icmp_->PingHost(kSilent), -11010);
    EXPECT_GE(icmp_->PingHost("127.0.0.1"), 0) << "loopback answers while it is asked";
  }
}

TEST_F(IcmpEcho, SilentHopsCount) {
  const RunningClock clock([] { return true; });
  icmp_->TRMaxHops(3);
  icmp_->TRTimeout(500);
  icmp_->TRDelay(2000);
  hops_.hook = [&](bool&) {
    EXPECT_EQ(icmp_->TRHopCount(), static_cast<std::int32_t>(hops_.seen.size()));
    icmp_->TRMaxHops(100);
  };
  const Takes time(milliseconds(3 * 500 + 2 * 2000), milliseconds(3 * 500 + 3 * 2000));
  EXPECT_TRUE(icmp_->TraceRt(kSilent));
  EXPECT_EQ(hops_.seen, (std::vector<HopSeen>(3, HopSeen{"", 11010})));
  EXPECT_EQ(icmp_->TRHopCount(), 3);
  EXPECT_EQ(icmp_->TRSumRoundTripTime(), 0);
  ExpectError(0, "");
}

TEST_F(IcmpEcho, LimitsOfTheNumberOfHops) {
  icmp_->TRTimeout(0);
  const std::pair<std::int32_t, std::int32_t> cases[] = {
      {-1, 0}, {0, 0}, {1, 1}, {255, 255}, {256, 255}, {2'147'483'647, 255}};
  for (const auto& [limit, hops] : cases) {
    icmp_->TRMaxHops(limit);
    EXPECT_TRUE(icmp_->TraceRt(kSilent));
    EXPECT_EQ(icmp_->TRHopCount(), hops) << limit;
  }
}

TEST_F(IcmpEcho, TheHandlerCancels) {
  hops_.hook = [&](bool& cancel) { cancel = hops_.seen.size() == 2; };
  icmp_->TRTimeout(0);
  EXPECT_FALSE(icmp_->TraceRt(kSilent));
  EXPECT_EQ(hops_.seen.size(), 2u);
  EXPECT_TRUE(icmp_->TRCanceled());
  ExpectError(9999, "Command Canceled");

  hops_.hook = [](bool& cancel) { cancel = true; };
  EXPECT_TRUE(icmp_->TraceRt("127.0.0.1")) << "it has answered";
  EXPECT_TRUE(icmp_->TRCanceled());
  hops_.hook = nullptr;
  EXPECT_TRUE(icmp_->TraceRt("127.0.0.1"));
  EXPECT_FALSE(icmp_->TRCanceled());
}

TEST_F(IcmpEcho, EveryWaitIsEnded) {
  const auto trace = [&](std::int32_t timeout, std::int32_t pause) {
    icmp_->TRTimeout(timeout);
    icmp_->TRDelay(pause);
    EXPECT_FALSE(icmp_->TraceRt(kSilent));
    ExpectError(9999, "Command Canceled");
    EXPECT_FALSE(icmp_->TRCanceled()) << "not by Hop";
  };
  const std::function<void()> kStops[] = {
      [&] { icmp_->StopWaiting(); }, [&] { icmp_->Kill(); },
      [&] { std::thread([&] { icmp_->StopWaiting(); }).join(); }};
  for (const auto& stop : kStops) {
    During(stop);
    EXPECT_EQ(icmp_->PingHost(kSilent), -9999);
    ExpectError(9999, "Command Canceled");
    During(stop);
    trace(60'000, 60'000);
    hops_.hook = [&](bool&) { During(stop); };
    trace(0, 60'000);
    hops_.hook = [&](bool&) { stop(); };
    for (const std::int32_t pause : {60'000, 0}) {
      trace(0, pause);
      EXPECT_EQ(icmp_->TRHopCount(), 1);
    }
    hops_.hook = nullptr;
    stop();
    EXPECT_GE(icmp_->PingHost("127.0.0.1"), 0) << "a stop of before is not one of now";
  }
}

TEST_F(IcmpEcho, ASecondCallIsRefusedAndChangesNothing) {
  EXPECT_EQ(icmp_->PingHost(kNoName), -10000);
  During([&] {
    EXPECT_EQ(icmp_->PingHost("127.0.0.1"), -10036);
    EXPECT_FALSE(icmp_->TraceRt("127.0.0.1"));
    EXPECT_EQ(icmp_->DNSLookup("localhost"), "");
    ExpectError(-10000, "Can not find host in DNS");
    EXPECT_EQ(icmp_->TRHopCount(), 0);
    icmp_->StopWaiting();
  });
  EXPECT_EQ(icmp_->PingHost(kSilent), -9999);
}

TEST_F(IcmpEcho, CallsInsideCallsKeepTheirReplies) {
  ICMPCls inner;
  std::vector<std::int32_t> results;
  During([&] {
    for (int i = 1; i <= 20; ++i) results.push_back(inner.PingHost("127.0.0." + std::to_string(i)));
    inner.PingTimeout(0);
    results.push_back(inner.PingHost(kSilent));
    icmp_->StopWaiting();
  });
  EXPECT_EQ(icmp_->PingHost(kSilent), -9999) << "none of those replies was for this call";
  ASSERT_EQ(results.size(), 21u);
  for (int i = 0; i < 20; ++i) EXPECT_GE(results[static_cast<std::size_t>(i)], 0) << i;
  EXPECT_EQ(results[20], -11010);
}

TEST_F(IcmpEcho, DeletedDuringACall) {
  During([&] { icmp_.reset(); });
  EXPECT_EQ(icmp_->PingHost(kSilent), -9999);
  icmp_ = std::make_unique<ICMPCls>();
  During([&] { icmp_.reset(); });
  EXPECT_FALSE(icmp_->TraceRt(kSilent));
  for (const char* host : {kSilent, "127.0.0.1"}) {
    icmp_ = std::make_unique<ICMPCls>();
    icmp_->Events(&hops_);
    icmp_->TRTimeout(host == kSilent ? 0 : 5000);
    hops_.hook = [&](bool&) { icmp_.reset(); };
    EXPECT_FALSE(icmp_->TraceRt(host)) << host;
    EXPECT_EQ(icmp_, nullptr);
  }
  EXPECT_EQ(hops_.seen.size(), 2u);
}

TEST_F(IcmpEcho, TheHandlerMayCallAndChangeTheSink) {
  ICMPCls other;
  icmp_->TRTimeout(0);
  icmp_->TRMaxHops(5);
  hops_.hook = [&](bool&) {
    EXPECT_GE(other.PingHost("127.0.0.1"), 0);
    if (hops_.seen.size() == 3) icmp_->Events(nullptr);
  };
  EXPECT_TRUE(icmp_->TraceRt(kSilent));
  EXPECT_EQ(hops_.seen.size(), 3u);
  EXPECT_EQ(icmp_->TRHopCount(), 5);
}

}  // namespace
}  // namespace netro
