// Hosts with several addresses: which one is connected to, and what is seen of the others.
#include <netro/UDPCls.h>

#include "DnsTestKit.h"
#include "SocketTestKit.h"
#include "platform/Address.h"
#include "platform/Sockets.h"

namespace netro {
namespace {

namespace dns = testkit::dns;
using Texts = std::vector<std::string>;

std::string RecordOf(const std::string& text) {
  const IpAddress address = *ParseAddress(text);
  const auto bytes = address.Bytes();
  return dns::Record(dns::kQuestion, address.IsIPv6() ? TYPE_AAAA : TYPE_A,
                     std::string(bytes.begin(), bytes.end()));
}

// A name with these addresses.
DnsServer::Answer Holding(Texts addresses) {
  return [=](const std::string& query) -> DnsServer::Replies {
    DnsReply reply(query);
    for (const std::string& one : addresses) {
      const int type = ParseAddress(one)->IsIPv6() ? TYPE_AAAA : TYPE_A;
      if (query[query.find('\0', 12) + 2] == type) reply.Answer(RecordOf(one));
    }
    return {reply.Bytes()};
  };
}

bool HasIPv6() { return !SourceAddress(*ParseAddress("::1")).IsNone(); }

// 127.0.0.1 and ::1 listen, 127.0.0.9 takes no more connections, all others refuse.
struct ConnectRace : testing::Test {
  void SetUp() override {
    socket_->ClearDNSCache();
    ASSERT_TRUE(listener_.Listen("127.0.0.1"));
    port_ = listener_.LocalPort();
    listener6_.LocalPort(port_);
    ASSERT_EQ(listener6_.Listen("::1"), HasIPv6());
    full_ = std::make_unique<HangingPort>(port_, "127.0.0.9");
  }
  void TearDown() override { socket_->ClearDNSCache(); }

  // The events, with the peer's address behind Connect and the number behind Error.
  std::string Connect(const Texts& addresses, AddressPreferenceEnum preference = preferIPv4) {
    server_ = std::make_unique<DnsServer>(Holding(addresses));
    socket_->ClearDNSCache();
    socket_->DNSURL("127.0.0.1:" + std::to_string(server_->Port()));
    socket_->AddressPreference(preference);
    Recorder seen(*socket_);
    if (!socket_->Connect("host.test", port_)) {
      return "failed " + std::to_string(socket_->LastSocketErr());
    }
    EXPECT_EQ(socket_->State(), sockConnecting);
    EXPECT_TRUE(PumpUntil([&] { return seen.Saw("Connect") || seen.Saw("Error"); }));
    std::string text;
    for (const std::string& event : seen.events) {
      if (event == "Connect") text += event + ' ' + socket_->RemoteIP();
      if (event == "Error") text += event + ' ' + std::to_string(seen.error);
    }
    EXPECT_EQ(socket_->SocketHandle() != 0, seen.Saw("Connect"));
    return text;
  }

  SystemRoot root_;
  SocketCls listener_;
  SocketCls listener6_;
  std::int32_t port_ = 0;
  std::unique_ptr<HangingPort> full_;
  std::unique_ptr<DnsServer> server_;
  std::unique_ptr<SocketCls> socket_ = std::make_unique<SocketCls>();
};

TEST_F(ConnectRace, TheFirstThatOpensStays) {
  struct {
    Texts addresses;
    std::string outcome;
    std::size_t queries = 1;
  } const cases[] = {
      {{"127.0.0.1"}, "Connect 127.0.0.1"},
      {{"127.0.0.5", "127.0.0.1"}, "Connect 127.0.0.1"},
      {{"127.0.0.9", "127.0.0.1"}, "Connect 127.0.0.1"},
      {{"127.0.0.9", "127.0.0.5", "127.0.0.9", "127.0.0.1"}, "Connect 127.0.0.1"},
      {{"127.0.0.5", "127.0.0.6"}, "Error 10061", 2},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Connect(c.addresses), c.outcome) << c.addresses.front();
    EXPECT_EQ(server_->Queries().size(), c.queries) << c.addresses.front();
  }
}

TEST_F(ConnectRace, TheOtherFamilyIsUsedAsThePreferenceHasIt) {
  if (!HasIPv6()) GTEST_SKIP() << "there is no IPv6 here";
  const std::tuple<Texts, AddressPreferenceEnum, std::string, std::size_t> cases[] = {
      {{"::1"}, preferIPv4, "Connect ::1", 2},
      {{"127.0.0.1", "::1"}, preferIPv4, "Connect 127.0.0.1", 1},
      {{"127.0.0.5", "::1"}, preferIPv4, "Connect ::1", 2},
      {{"127.0.0.9", "::1"}, preferIPv4, "Connect ::1", 2},
      {{"127.0.0.1", "::1"}, preferIPv6, "Connect ::1", 2},
      {{"127.0.0.1"}, preferIPv6, "Connect 127.0.0.1", 2},
      {{"127.0.0.1", "::2"}, preferIPv6, "Connect 127.0.0.1", 2},
      {{"127.0.0.5", "::1"}, onlyIPv4, "Error 10061", 1},
      {{"127.0.0.1", "::1"}, onlyIPv6, "Connect ::1", 1},
      {{"::1"}, onlyIPv4, "failed 11004", 1},
      {{"127.0.0.1"}, onlyIPv6, "failed 11004", 1},
      {{}, preferIPv4, "failed 11004", 2},
      {{}, preferIPv6, "failed 11004", 2},
  };
  for (const auto& [addresses, preference, outcome, queries] : cases) {
    SCOPED_TRACE((addresses.empty() ? "none" : addresses.front()) + ' ' +
                 std::to_string(preference));
    EXPECT_EQ(Connect(addresses, preference), outcome);
    EXPECT_EQ(server_->Queries().size(), queries);
    EXPECT_EQ(socket_->GetDNSCacheCount() > 0, !outcome.starts_with("failed"));
  }
}

// The order of the families puts ::1 first, where nobody listens any more.
TEST_F(ConnectRace, AnAttemptOfOneFamilyLeavesTheOtherItsOwnSocket) {
  if (!HasIPv6()) GTEST_SKIP() << "there is no IPv6 here";
  listener6_.Disconnect();
  EXPECT_EQ(Connect({"127.0.0.1", "::1"}, preferIPv6), "Connect 127.0.0.1");
  EXPECT_EQ(Connect({"127.0.0.9", "127.0.0.1", "::1"}, preferIPv6), "Connect 127.0.0.1");
}

TEST_F(ConnectRace, TheNextBeginsAQuarterOfASecondAfterTheLast) {
  const Takes time(std::chrono::milliseconds(250));
  EXPECT_EQ(Connect({"127.0.0.9", "127.0.0.9", "127.0.0.1"}), "Connect 127.0.0.1");
}

TEST_F(ConnectRace, MayBeEndedAtAnyMoment) {
  for (const bool deleted : {false, true}) {
    server_ = std::make_unique<DnsServer>(Holding({"127.0.0.9", "127.0.0.9"}));
    socket_->DNSURL("127.0.0.1:" + std::to_string(server_->Port()));
    socket_->ClearDNSCache();
    ASSERT_TRUE(socket_->Connect("host.test", port_));
    Recorder seen(*socket_);
    const auto begun = Now();
    PumpUntil([&] { return Now() - begun > std::chrono::milliseconds(300); });
    deleted ? socket_.reset() : socket_->Disconnect();
    PumpUntil([&] { return Now() - begun > std::chrono::milliseconds(600); });
    EXPECT_TRUE(seen.events.empty());
    if (deleted) socket_ = std::make_unique<SocketCls>();
  }
}

TEST(IPv6, ListenersAndClients) {
  if (!HasIPv6()) GTEST_SKIP() << "there is no IPv6 here";
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"::1", "::1", "::1"},
      {"::", "::1", "::1"},
      {"::", "127.0.0.1", "127.0.0.1"},
      {"::", "::ffff:127.0.0.1", "127.0.0.1"},
      {"", "127.0.0.1", "127.0.0.1"}};
  for (const auto& [listen, host, from] : cases) {
    SCOPED_TRACE(std::string(listen) + ' ' + host);
    SocketCls listener, accepted, client;
    Recorder requests(listener), received(accepted);
    requests.hook = [&](const std::string&) { accepted.Accept(requests.request); };
    ASSERT_TRUE(listener.Listen(listen));
    EXPECT_EQ(listener.LocalIP(), *listen == '\0' ? "0.0.0.0" : listen);
    ASSERT_TRUE(client.Connect(host, listener.LocalPort()));
    EXPECT_EQ(client.QueueData("x"), 0);
    EXPECT_TRUE(PumpUntil([&] { return received.received == "x"; }));
    EXPECT_EQ(accepted.RemoteIP(), from);
    EXPECT_EQ(received.from, from);
  }
}

TEST(IPv6, DatagramsAndDnsServers) {
  if (!HasIPv6()) GTEST_SKIP() << "there is no IPv6 here";
  SocketCls server;
  Recorder seen(server);
  server.UseUDP(true);
  ASSERT_TRUE(server.Listen("::1"));
  UDPCls client;
  client.URL("::1");
  client.Port(server.LocalPort());
  std::int32_t error = 0;
  ASSERT_TRUE(client.UPDConnect(error));
  EXPECT_TRUE(client.UDPSendString("hello", error)) << error;
  EXPECT_TRUE(PumpUntil([&] { return seen.Saw("DataArrival"); }));
  EXPECT_EQ(seen.received, "hell");
  EXPECT_EQ(seen.from, "::1");

  QueryDNSCLS dns;
  dns.DNSServer("[::1]");
  dns.Domain("host.test");
  dns.DNSPort(server.LocalPort());
  dns.RetryCount(1);
  seen.events.clear();
  EXPECT_NE(dns.QueryDNS(), 0);
  EXPECT_TRUE(seen.Saw("DataArrival")) << "a server named by its address in brackets";
  SocketCls socket;
  socket.DNSURL("[::1]:" + std::to_string(server.LocalPort()) + ",127.0.0.1:1");
  seen.events.clear();
  seen.hook = [&](const std::string&) { socket.StopWaiting(); };
  EXPECT_EQ(socket.DNSLookup("host.test"), "");
  EXPECT_TRUE(seen.Saw("DataArrival"));
}

}  // namespace
}  // namespace netro
