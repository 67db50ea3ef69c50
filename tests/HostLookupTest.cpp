// Lookups of names as every class makes them, and addresses as texts and in their order.
#include <netro/HTTPCls.h>
#include <netro/ICMPCls.h>
#include <netro/QueryTimeCLS.h>
#include <netro/SendMailCls.h>
#include <netro/SocketCls.h>
#include <netro/UDPCls.h>

#include "DnsTestKit.h"
#include "dns/AddressOrder.h"
#include "platform/Address.h"
#include "platform/Sockets.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

const DnsServer::Answer kFound = Replying([](auto& reply) { reply.Answer(AddressRecord(7)); });
const DnsServer::Answer kDenied = Replying([](auto& reply) { reply.Code(3); });
const DnsServer::Answer kTruncated = Replying([](auto& reply) { reply.Flags(0x83, 0x80); });

struct HostLookup : testing::Test {
  void SetUp() override { socket_->ClearDNSCache(); }
  void TearDown() override { SocketCls().ClearDNSCache(); }

  std::string Lookup(const std::string& servers, const std::string& name = "www.test") {
    socket_->DNSURL(servers);
    return socket_->DNSLookup(name);
  }

  SystemRoot root_;
  std::unique_ptr<SocketCls> socket_ = std::make_unique<SocketCls>();
};

TEST_F(HostLookup, IsAskedOnceInTenMinutes) {
  DnsServer server(kFound);
  EXPECT_EQ(Lookup(UrlOf(server)), "192.0.2.7");
  EXPECT_EQ(Lookup(UrlOf(server), "WWW.Test"), "192.0.2.7");
  SocketCls other;
  EXPECT_EQ(other.GetDNSCacheCount(), 1) << "all objects of a thread share the cache";
  std::thread([] { EXPECT_EQ(SocketCls().GetDNSCacheCount(), 0); }).join();
  AdvanceClockForTests(std::chrono::seconds(601));
  EXPECT_EQ(Lookup(UrlOf(server)), "192.0.2.7");
  EXPECT_EQ(server.Queries().size(), 2u);
}

TEST_F(HostLookup, FailureIsNotKept) {
  std::atomic<bool> known = false;
  DnsServer server(Replying([&](auto& r) { known ? r.Answer(AddressRecord(1)) : r.Code(3); }));
  EXPECT_EQ(Lookup(UrlOf(server)), "");
  EXPECT_EQ(socket_->DNSLastErr(), 59);
  EXPECT_EQ(socket_->DNSLastErrMsg(), "No DNS Entries found.");
  EXPECT_EQ(socket_->GetDNSCacheCount(), 0);
  known = true;
  EXPECT_EQ(Lookup(UrlOf(server)), "192.0.2.1");
  EXPECT_EQ(socket_->DNSLastErr(), 0);
}

TEST_F(HostLookup, OnlyWhatCanBeUsedCounts) {
  const std::string alias = dns::Record(dns::kQuestion, TYPE_CNAME, dns::Name("real.test"));
  const std::string real = dns::Record(dns::Name("real.test"), TYPE_A, dns::Octets({192, 0, 2, 9}));
  const auto address = [](std::uint32_t ip) {
    return dns::Record(dns::kQuestion, TYPE_A, dns::U32(ip));
  };
  const auto name = [](const std::string& rdata) {
    return dns::Record(dns::kQuestion, TYPE_PTR, rdata);
  };
  const std::tuple<std::string, std::vector<std::string>, std::string> cases[] = {
      {"www.test", {alias, real}, "192.0.2.9"},
      {"www.test.", {alias, real}, "192.0.2.9"},
      {"www.test", {alias}, ""},
      {"www.test", {real}, ""},
      {"www.test", {real, AddressRecord(8)}, "192.0.2.8"},
      {"www.test", {address(0)}, ""},
      {"www.test", {address(0xFFFFFFFF), AddressRecord(3)}, "192.0.2.3"},
      {"192.0.2.4", {name(dns::Name("host_1.test"))}, "host_1.test"},
      {"192.0.2.4", {name(dns::Text("a\r\nb") + dns::Name("test"))}, ""},
      {"192.0.2.4", {name(dns::Name(""))}, ""},
      {"192.0.2.4", {name(dns::Name("192.0.2.99"))}, ""},
  };
  for (const auto& [asked, records, result] : cases) {
    DnsServer server(Replying([&](auto& reply) {
      for (const std::string& record : records) reply.Answer(record);
    }));
    socket_->ClearDNSCache();
    EXPECT_EQ(Lookup(UrlOf(server), asked), result);
    EXPECT_EQ(socket_->DNSLastErr(), result.empty() ? 11004 : 0);
  }
}

// And what it was if there is no other.
TEST_F(HostLookup, NextServerIsAskedWhenThisOneDoesNotKnow) {
  const auto code = [](int rcode) { return Replying([=](auto& r) { r.Code(rcode); }); };
  const std::string referral = dns::Record(dns::Name("test"), TYPE_NS, dns::Name("ns.test"));
  const struct {
    const char* name;
    DnsServer::Answer first;
    std::int32_t lookup, connect;
    bool isFinal = false;
  } cases[] = {
      {"no such name", kDenied, 59, 11001, true},
      {"no address", Replying([](auto& r) { r.Authority(SoaRecord()); }), 11004, 11004, true},
      {"server failure", code(2), 11002, 11002},
      {"refused", code(5), 11002, 11002},
      {"referral", Replying([&](auto& r) { r.Flags(0x81, 0).Authority(referral); }), 11002, 11002},
      {"garbage", Replying([](auto& r) { r.AnswerCount(9); }), 11002, 11002},
      {"silence", KeepSilent, 11002, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    DnsServer first(c.first), second(kFound);
    const bool silent = c.connect == 0;
    socket_->ClearDNSCache();
    {
      const RunningClock clock(
          [&] { return silent && first.QueryCount() > 0 && second.QueryCount() == 0; },
          std::chrono::seconds(2));
      EXPECT_EQ(Lookup(" , " + UrlOf(first) + " ," + UrlOf(second)), c.isFinal ? "" : "192.0.2.7");
    }
    EXPECT_EQ(second.Queries().size(), c.isFinal ? 0u : 1u);
    const std::size_t asked = first.Queries().size();
    const RunningClock clock([&] { return silent && first.QueryCount() > asked; });
    socket_->ClearDNSCache();
    EXPECT_EQ(Lookup(UrlOf(first)), "");
    EXPECT_EQ(socket_->DNSLastErr(), c.lookup);
    EXPECT_NE(socket_->DNSLastErrMsg(), "");
    EXPECT_TRUE(silent || !socket_->Connect("www.test", 80));
    EXPECT_TRUE(silent || socket_->LastSocketErr() == c.connect) << socket_->LastSocketErr();
  }
}

TEST_F(HostLookup, TruncatedReplyComesAgainOverTcp) {
  DnsServer server(kTruncated,
                   ReplyingOverTcp([](auto& reply) { reply.Answer(AddressRecord(5)); }));
  EXPECT_EQ(Lookup(UrlOf(server)), "192.0.2.5");
}

TEST_F(HostLookup, WhatTheProgramLacksIsNoWordAboutTheName) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer needs descriptors itself";
#endif
  root_.Put("etc/hosts", "");
  root_.Put("etc/resolv.conf", "");
  DnsServer denies(kDenied);
  DnsServer truncates(kTruncated);
  EXPECT_EQ(Lookup(UrlOf(denies)), "");
  EXPECT_EQ(socket_->DNSLastErr(), 59);
  socket_ = std::make_unique<SocketCls>();  // whose DNSURL is the system's again
  const auto lookUp = [&](unsigned descriptors, const std::string& name) {
    const auto few = WithDescriptors(descriptors);
    EXPECT_EQ(socket_->DNSLookup(name), "");
    return socket_->DNSLastErr();
  };
  EXPECT_EQ(lookUp(0, "www.test"), 10055);  // by the system's resolver
  const std::int32_t reverse = lookUp(0, "192.0.2.1");
  EXPECT_TRUE(reverse == 10055 || reverse == 11002) << reverse << ": it hides the reason sometimes";
  socket_->DNSURL(UrlOf(denies));
  EXPECT_EQ(lookUp(0, "www.test"), 10055);
  socket_->DNSURL(UrlOf(truncates));
  EXPECT_EQ(lookUp(1, "www.test"), 10055);
  const SystemRoot unread;
  EXPECT_EQ(lookUp(0, "www.test"), 10055);
}

TEST_F(HostLookup, HostsFileNeedsNoServer) {
  root_.Put("etc/hosts", "192.0.2.20 box.test box\n");
  DnsServer server(kFound);
  const std::pair<const char*, const char*> cases[] = {
      {"box", "192.0.2.20"},      {"Box.Test.", "192.0.2.20"},  {"192.0.2.20", "box.test"},
      {"localhost", "127.0.0.1"}, {"a.localhost", "127.0.0.1"}, {"127.0.0.1", "localhost"}};
  for (const auto& [asked, result] : cases)
    EXPECT_EQ(Lookup(UrlOf(server), asked), result) << asked;
  EXPECT_TRUE(server.Queries().empty());
  EXPECT_EQ(Lookup(UrlOf(server), "boxes"), "192.0.2.7");
}

TEST_F(HostLookup, ServerListThatCannotBeReadIsToldOf) {
  for (const char* list : {"127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536", "127.0.0.1:5x", ":53",
                           "127.0.0.1,:", "a\nb"}) {
    EXPECT_EQ(Lookup(list), "") << list;
    EXPECT_EQ(socket_->DNSLastErr(), 10022) << list;
  }
  for (const char* name : {"", "a..b"}) {
    EXPECT_EQ(Lookup("127.0.0.1:9", name), "");
    EXPECT_EQ(socket_->DNSLastErr(), 59);
  }
}

TEST_F(HostLookup, StaysWithinTheTimeOutOfItsCaller) {
  DnsServer silent(KeepSilent);
  // A server by a name that nobody knows costs time as well.
  for (const std::string& servers : {UrlOf(silent), UrlOf(silent) + ",ns.test:53"}) {
    HTTPCls http;
    http.DNSURL(servers);
    http.URL("http://web.test/");
    http.TimeOutSeconds(2);
    const RunningClock clock([&] { return silent.QueryCount() > 0; });
    const Takes time(seconds(0), milliseconds(2500));
    bool timeout = false;
    http.HTTPQuery(timeout);
    EXPECT_EQ(http.LastErr(), 10002);
  }
}

TEST_F(HostLookup, StopsAtOnceAndMindsDeletion) {
  DnsServer silent(KeepSilent);
  const auto asked = [&](std::size_t count) {
    return [&, count] { return silent.QueryCount() >= count; };
  };
  PostWhen(asked(1), [&] { socket_->StopWaiting(); });
  EXPECT_EQ(Lookup(UrlOf(silent)), "");
  EXPECT_EQ(socket_->DNSLastErr(), 9999);
  PostWhen(asked(2), [&] {
    EXPECT_EQ(socket_->DNSLookup("other.test"), "") << "a lookup of this object is running";
    socket_.reset();
  });
  SocketCls& socket = *socket_;
  socket.DNSURL(UrlOf(silent));
  EXPECT_EQ(socket.DNSLookup("www.test"), "");
  EXPECT_EQ(socket_, nullptr);
}

// Found once for each thread.
TEST(DnsServersOfEachClass, AreTheSystems) {
  SystemRoot root;
  root.Put("etc/resolv.conf", "nameserver 127.0.0.1\nnameserver 127.0.0.2\n");
  std::thread([] {
    for (const std::string& servers :
         {SocketCls().DNSURL(), UDPCls().DNSURL(), SMTPCls().DNSURL(), SendMailCls().DNSURL()})
      EXPECT_EQ(servers, "127.0.0.1,127.0.0.2");
    EXPECT_EQ(HTTPCls().DNSURL() + QueryTimeCLS().DNSURL() + ICMPCls().DNSURL(), "");
  }).join();
}

TEST(Address, IsReadAndWritten) {
  const struct {
    const char *text, *written;
    AddressFamily family = AddressFamily::IPv6;
  } cases[] = {{"192.0.2.1", "192.0.2.1", AddressFamily::IPv4},
               {"127.1", "127.0.0.1", AddressFamily::IPv4},
               {"255.255.255.255", "255.255.255.255", AddressFamily::IPv4},
               {"::ffff:192.0.2.1", "192.0.2.1", AddressFamily::IPv4},
               {"::", "::"},
               {"::1", "::1"},
               {"2001:DB8:0:0:1::1", "2001:db8::1:0:0:1"},
               {"fe80::1%lo", "fe80::1%lo"},
               {"fe80::1%1", "fe80::1%lo"},
               {"fe80::1%4294967", "fe80::1%4294967"},
               {"ff02::1%lo", "ff02::1%lo"},
               {"2001:db8::1%lo", "2001:db8::1"}};
  for (const auto& c : cases) {
    const auto address = ParseAddress(c.text);
    ASSERT_TRUE(address) << c.text;
    EXPECT_EQ(FormatAddress(*address), c.written);
    EXPECT_EQ(address->Family(), c.family) << c.text;
    EXPECT_EQ(address->Bits() == -1, c.family == AddressFamily::IPv6 || address->IsBroadcast());
  }
  for (const char* none : {"", "::1%", "::1%nowhere", "::1%0", "[::1]", " ::1", "::1 ",
                           ":::", "1:2:3:4:5:6:7", "12345::", "host"})
    EXPECT_FALSE(ParseAddress(none)) << none;
  EXPECT_FALSE(ParseAddress(std::string("::1\0", 4)));
  EXPECT_EQ(FormatAddress({}), "");
}

TEST(Address, HasAPortBehindIt) {
  const struct {
    const char *text, *host;
    std::int32_t port = 53;
  } cases[] = {{"ns.test", "ns.test"},
               {" ns.test : 54 ", "ns.test", 54},
               {"192.0.2.1:5353", "192.0.2.1", 5353},
               {"2001:db8::1", "2001:db8::1"},
               {"[2001:db8::1]", "2001:db8::1"},
               {"[::1]:65535", "::1", 65535},
               {"[fe80::1%lo]:1", "fe80::1%lo", 1}};
  std::string host;
  for (const auto& c : cases) {
    std::int32_t port = 53;
    ASSERT_TRUE(SplitEndpoint(c.text, host, port)) << c.text;
    EXPECT_EQ(host, c.host);
    EXPECT_EQ(port, c.port);
  }
  std::int32_t port = 53;
  for (const char* none : {"", ":53", "ns:", "ns:0", "ns:65536", "ns:5x", "[::1", "[::1]53",
                           "[::1]:", "[ns]:53", "[192.0.2.1]:53", "a:b:c", "ns\n"})
    EXPECT_FALSE(SplitEndpoint(none, host, port)) << none;
  EXPECT_EQ(FormatEndpoint("::1", 53), "[::1]:53");
  EXPECT_EQ(FormatEndpoint("host.test", 53), "host.test:53");
}

// Loopback is all that every host has a way to.
TEST(Address, TheUsableComeFirstAndTheFamiliesTakeTurns) {
  const auto order = [](const std::vector<const char*>& texts) {
    std::vector<IpAddress> addresses;
    for (const char* text : texts) addresses.push_back(*ParseAddress(text));
    std::string joined;
    for (const IpAddress& one : OrderAddresses(addresses)) joined += FormatAddress(one) + ' ';
    return joined;
  };
  EXPECT_EQ(order({"127.0.0.1"}), "127.0.0.1 ");
  EXPECT_EQ(order({"127.0.0.2", "127.0.0.1"}), "127.0.0.2 127.0.0.1 ");
  if (SourceAddress(*ParseAddress("::1")).IsNone()) GTEST_SKIP() << "there is no IPv6 here";
  EXPECT_EQ(order({"127.0.0.1", "127.0.0.2", "::1"}), "::1 127.0.0.1 127.0.0.2 ");
  EXPECT_EQ(order({"fe80::1%4294967", "127.0.0.1"}), "127.0.0.1 fe80::1%4294967 ");
}

}  // namespace
}  // namespace netro
