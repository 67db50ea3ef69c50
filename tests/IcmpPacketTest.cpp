// ICMP messages by themselves: the bytes of a request, replies, errors with what they quote, and
// the statuses that types and codes stand for.

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Echo.h"
#include "platform/Sockets.h"
#include "support/IcmpPacket.h"
#include "tests/peers/IcmpBytes.h"

namespace netro {
namespace {

using namespace std::string_literals;
using peers::EchoMessage;
using peers::IcmpErrorMessage;
using peers::IpBytes;
using peers::IpFields;

constexpr char kHere[] = "192.0.2.1";
constexpr char kThere[] = "198.51.100.7";
constexpr char kRouter[] = "203.0.113.9";
const std::string kOptions = "\x07\x0B\x04"s + std::string(9, '\0');  // record route, and the end

std::span<const std::uint8_t> BytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::int32_t Ip(const std::string& dotted) { return ParseDotted(dotted).value_or(-1); }

IpFields From(const std::string& source, const std::string& destination,
              const std::string& options = std::string()) {
  IpFields fields;
  fields.source = source;
  fields.destination = destination;
  fields.options = options;
  return fields;
}

// An error message of a router about a request from here to there.
std::string ErrorPacket(const std::string& options, const std::string& quotedOptions,
                        const std::string& data = "data") {
  const std::string quoted =
      IpBytes(From(kHere, kThere, quotedOptions), EchoMessage(8, 0x1234, 0x0A0B, data));
  return IpBytes(From(kRouter, kHere, options), IcmpErrorMessage(11, 0, quoted));
}

// From a packet of the four options combinations, where its ICMP message begins.
std::size_t HeaderSize(const std::string& options) { return 20 + options.size(); }

TEST(IcmpPacket, RequestsAreComposed) {
  for (const std::string& data : {""s, "d"s, "data"s, std::string(65'507, '\xFF')}) {
    const Bytes request = ComposeEchoRequest(0x1234, 0x0A0B, BytesOf(data));
    EXPECT_EQ(std::string(request.begin(), request.end()), EchoMessage(8, 0x1234, 0x0A0B, data))
        << data.size();
    EXPECT_EQ(InternetChecksum(request), 0) << data.size();
  }
}

TEST(IcmpPacket, ErrorsHaveTheirStatus) {
  struct {
    std::uint8_t type;
    std::vector<int> codes;
    std::optional<std::int32_t> status;
  } const cases[] = {
      {3, {0, 6, 9, 11}, 11002}, {3, {1, 7, 8, 10, 12, 13, 14, 15, 16, 255}, 11003},
      {3, {2}, 11004},           {3, {3}, 11005},
      {3, {4}, 11009},           {3, {5}, 11012},
      {4, {0, 1}, 11016},        {11, {0, 2, 255}, 11013},
      {11, {1}, 11014},          {12, {0, 1, 2}, 11015},
      {0, {0}, std::nullopt},    {5, {0, 1, 2, 3}, std::nullopt},
      {8, {0}, std::nullopt},    {13, {0}, std::nullopt},
      {255, {0}, std::nullopt},
  };
  for (const auto& c : cases) {
    for (const int code : c.codes) {
      EXPECT_EQ(IcmpErrorStatus(c.type, static_cast<std::uint8_t>(code)), c.status)
          << int{c.type} << "/" << code;
    }
  }
}

TEST(IcmpPacket, RefusalsToSendHaveTheirStatus) {
  struct {
    std::int32_t error, status;
  } const cases[] = {{0, 0},         {10040, 11009}, {10050, 11002}, {10051, 11002},
                     {10064, 11003}, {10065, 11003}, {10055, 11006}, {10013, 11050},
                     {10022, 11050}, {20001, 11050}};
  for (const auto& c : cases) EXPECT_EQ(EchoSendStatus(c.error), c.status) << c.error;
}

TEST(IcmpPacket, RepliesAreRead) {
  for (const std::string& options : {""s, kOptions, std::string(40, '\x01')}) {
    for (const std::string& data : {""s, "x"s, "some data"s}) {
      IpFields fields = From(kThere, kHere, options);
      fields.ttl = 57;
      const std::string packet = IpBytes(fields, EchoMessage(0, 0xFFFE, 0x8001, data));
      const auto answer = ReadIcmpPacket(BytesOf(packet));
      ASSERT_TRUE(answer) << options.size() << " " << data;
      EXPECT_EQ(answer->status, 0);
      EXPECT_EQ(answer->from, Ip(kThere));
      EXPECT_EQ(answer->destination, Ip(kThere));
      EXPECT_EQ(answer->ttl, 57);
      EXPECT_EQ(answer->identifier, 0xFFFE);
      EXPECT_EQ(answer->sequence, 0x8001);
      EXPECT_EQ(std::string(answer->data.begin(), answer->data.end()), data);
    }
  }
}

TEST(IcmpPacket, ErrorsAreReadWithWhatTheyQuote) {
  for (const std::string& options : {""s, kOptions}) {
    for (const std::string& quotedOptions : {""s, kOptions, std::string(40, '\x01')}) {
      const std::string packet = ErrorPacket(options, quotedOptions);
      const auto answer = ReadIcmpPacket(BytesOf(packet));
      ASSERT_TRUE(answer) << options.size() << " " << quotedOptions.size();
      EXPECT_EQ(answer->status, 11013);
      EXPECT_EQ(answer->from, Ip(kRouter));
      EXPECT_EQ(answer->destination, Ip(kThere));
      EXPECT_EQ(answer->ttl, 64);
      EXPECT_EQ(answer->identifier, 0x1234);
      EXPECT_EQ(answer->sequence, 0x0A0B);
      EXPECT_TRUE(answer->data.empty());
    }
  }
}

// The checksum is made right for each cut, so that the lengths alone decide. Eight bytes of the
// request are all that an error message must quote.
TEST(IcmpPacket, ErrorsCutAnywhere) {
  for (const std::string& options : {""s, kOptions}) {
    for (const std::string& quotedOptions : {""s, kOptions}) {
      const std::string whole = ErrorPacket(options, quotedOptions);
      const std::size_t message = HeaderSize(options);
      const std::size_t enough = message + 8 + HeaderSize(quotedOptions) + 8;
      for (std::size_t size = 0; size <= whole.size(); ++size) {
        std::string packet = whole.substr(0, size);
        if (size >= message + 8) {
          packet.replace(message, std::string::npos,
                         peers::WithIcmpChecksum(packet.substr(message)));
        }
        const std::vector<std::uint8_t> exact(packet.begin(), packet.end());
        EXPECT_EQ(ReadIcmpPacket(exact).has_value(), size >= enough) << size;
      }
    }
  }
}

TEST(IcmpPacket, RepliesCutAnywhereAreNone) {
  const std::string whole =
      IpBytes(From(kThere, kHere, kOptions), EchoMessage(0, 1, 2, "\x11\x22\x33\x44"));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::vector<std::uint8_t> exact(whole.begin(),
                                          whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(ReadIcmpPacket(exact)) << size;
  }
  EXPECT_TRUE(ReadIcmpPacket(BytesOf(whole)));
  const auto padded = ReadIcmpPacket(BytesOf(whole + "padding"));
  ASSERT_TRUE(padded);
  EXPECT_EQ(padded->data.size(), 4u);
}

TEST(IcmpPacket, OthersAreNone) {
  const std::string request = EchoMessage(8, 1, 2, "data");
  const std::string reply = EchoMessage(0, 1, 2, "data");
  const auto errorAbout = [](const IpFields& fields, const std::string& payload) {
    return IpBytes(From(kRouter, kHere), IcmpErrorMessage(3, 1, IpBytes(fields, payload)));
  };
  IpFields udp = From(kThere, kHere);
  udp.protocol = 17;
  IpFields fragment = From(kThere, kHere);
  fragment.fragmentOffset = 1;
  std::string version6 = IpBytes(From(kThere, kHere), reply);
  version6[0] = '\x65';
  std::string shortHeader = IpBytes(From(kThere, kHere), reply);
  shortHeader[0] = '\x44';
  std::string shortLength = IpBytes(From(kThere, kHere), reply);
  shortLength.replace(2, 2, "\0\x13"s);
  std::string badChecksum = reply;
  badChecksum[2] = static_cast<char>(badChecksum[2] ^ 1);
  const std::string withCode = peers::WithIcmpChecksum("\0\1"s + reply.substr(2));
  IpFields quotedFragment = From(kHere, kThere);
  quotedFragment.fragmentOffset = 185;
  IpFields quotedUdp = From(kHere, kThere);
  quotedUdp.protocol = 17;
  struct {
    const char* what;
    std::string packet;
  } const cases[] = {
      {"a request", IpBytes(From(kThere, kHere), request)},
      {"another protocol", IpBytes(udp, reply)},
      {"a later fragment", IpBytes(fragment, reply)},
      {"another version", version6},
      {"a header of 16 bytes", shortHeader},
      {"shorter than its header", shortLength},
      {"a wrong checksum", IpBytes(From(kThere, kHere), badChecksum)},
      {"a reply with a code", IpBytes(From(kThere, kHere), withCode)},
      {"a redirect", IpBytes(From(kRouter, kHere),
                             IcmpErrorMessage(5, 1, IpBytes(From(kHere, kThere), request)))},
      {"an error about a datagram", errorAbout(quotedUdp, request)},
      {"an error about a later fragment", errorAbout(quotedFragment, request)},
      {"an error about a reply", errorAbout(From(kHere, kThere), reply)},
      {"an error about nothing", IpBytes(From(kRouter, kHere), IcmpErrorMessage(3, 1, ""))},
  };
  for (const auto& c : cases) EXPECT_FALSE(ReadIcmpPacket(BytesOf(c.packet))) << c.what;
}

// What a datagram socket gives: no IP headers.
TEST(IcmpPacket, MessagesWithoutHeader) {
  const std::string reply = EchoMessage(0, 3, 4, "data");
  const std::string request = EchoMessage(8, 3, 4, "data");
  const auto read = ReadEchoReply(BytesOf(reply));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->sequence, 4);
  EXPECT_EQ(read->data.size(), 4u);
  EXPECT_FALSE(ReadEchoReply(BytesOf(request)));
  const auto quoted = ReadQuotedRequest(BytesOf(request));
  ASSERT_TRUE(quoted);
  EXPECT_EQ(quoted->identifier, 3);
  EXPECT_FALSE(ReadQuotedRequest(BytesOf(reply)));
  for (std::size_t size = 0; size < 8; ++size) {
    EXPECT_FALSE(ReadEchoReply(BytesOf(reply.substr(0, size)))) << size;
    EXPECT_FALSE(ReadQuotedRequest(BytesOf(request.substr(0, size)))) << size;
  }
}

}  // namespace
}  // namespace netro
