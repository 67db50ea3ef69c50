// Addresses of both families as texts, and the order in which those of a host are tried.
#include <gtest/gtest.h>

#include "dns/AddressOrder.h"
#include "platform/Address.h"
#include "platform/Sockets.h"

namespace netro {
namespace {

TEST(Address, IsReadAndWritten) {
  const struct {
    const char* text;
    const char* written;
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
    const char* text;
    const char* host;
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
