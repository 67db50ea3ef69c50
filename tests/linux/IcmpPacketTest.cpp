// ICMP messages by themselves: requests, replies, errors with what they quote, their statuses.
#include "TestKit.h"
#include "platform/Echo.h"
#include "platform/IcmpPacket.h"
#include "tests/peers/IcmpBytes.h"

namespace netro {
namespace {

constexpr char kHere[] = "192.0.2.1";
constexpr char kThere[] = "198.51.100.7";
constexpr char kRouter[] = "203.0.113.9";
const std::string kRecordRoute = "\x07\x0B\x04"s + std::string(9, '\0');  // and the end

// What may stand between an IP header and its message.
struct Options {
  int protocol;  // see IpFields
  std::string bytes;
};

struct Family {
  AddressFamily family;
  std::string here, there, router;
  int asks, replies, expired;  // types
  std::size_t header;
  std::vector<Options> options;
};

const std::vector<Options> kOptions4 = {{1, ""}, {1, kRecordRoute}, {1, std::string(40, '\x01')}};
// Destination options; hop-by-hop options, routing and a first fragment.
const std::vector<Options> kOptions6 = {
    {58, ""},
    {60, "\x3A\x01\x01\x0C"s + std::string(12, '\0')},
    {0, "\x2B\x00\x01\x04\0\0\0\0"s + "\x2C\x00\0\0\0\0\0\0"s + "\x3A\0\0\1\0\0\0\7"s}};

const Family kFamilies[] = {
    {AddressFamily::IPv4, kHere, kThere, kRouter, 8, 0, 11, 20, kOptions4},
    {AddressFamily::IPv6, "2001:db8::1", "2001:db8:7::7", "fe80::9", 128, 129, 3, 40, kOptions6}};

std::span<const std::uint8_t> BytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

IpAddress Ip(const std::string& text) { return ParseAddress(text).value_or(IpAddress()); }

IpFields From(const std::string& source, const std::string& destination,
              const Options& options = {1, {}}) {
  IpFields fields;
  fields.source = source;
  fields.destination = destination;
  fields.protocol = options.protocol;
  fields.options = options.bytes;
  return fields;
}

// The parameter: an index of kFamilies.
struct IcmpPackets : testing::TestWithParam<int> {
  // An error message of a router about a request from here to there.
  std::string ErrorPacket(const Options& options, const Options& quotedOptions,
                          const std::string& data = "data") const {
    const std::string quoted =
        IpBytes(From(f.here, f.there, quotedOptions), EchoMessage(f.asks, 0x1234, 0x0A0B, data));
    return IpBytes(From(f.router, f.here, options), IcmpErrorMessage(f.expired, 0, quoted));
  }

  // As a raw socket gives it: of IPv6 there is the message alone. A copy of exactly this size lets
  // AddressSanitizer see a read past the end.
  std::optional<IcmpAnswer> Read(const std::string& packet, const Options& options) {
    if (f.family == AddressFamily::IPv4) {
      bytes_.assign(packet.begin(), packet.end());
      return ReadIcmpPacket(bytes_);
    }
    const std::size_t begin = std::min(packet.size(), HeaderSize(options));
    bytes_.assign(packet.begin() + static_cast<std::ptrdiff_t>(begin), packet.end());
    IpAddress source;
    if (packet.size() >= f.header)
      source = IpAddress::V6(BytesOf(packet).subspan(8).first<16>(), kScope);
    return ReadIcmp6Message(bytes_, source, packet.size() > 7 ? BytesOf(packet)[7] : 0);
  }

  struct Expected {
    std::int32_t status;
    int ttl;
    IpAddress from, destination;
    int identifier, sequence;
  };
  static void ExpectAnswer(const std::optional<IcmpAnswer>& answer, const Expected& expected) {
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, expected.status);
    EXPECT_EQ(answer->ttl, expected.ttl);
    EXPECT_EQ(answer->from, expected.from);
    EXPECT_EQ(answer->destination, expected.destination);
    EXPECT_EQ(answer->identifier, expected.identifier);
    EXPECT_EQ(answer->sequence, expected.sequence);
  }

  std::size_t HeaderSize(const Options& options) const { return f.header + options.bytes.size(); }
  IpAddress Sender(const std::string& text) const {
    const IpAddress ip = Ip(text);
    return ip.IsIPv6() ? IpAddress::V6(ip.Bytes().first<16>(), kScope) : ip;
  }

  static constexpr std::uint32_t kScope = 5;
  const Family& f = kFamilies[GetParam()];
  Bytes bytes_;
};

TEST(IcmpPacket, ErrorsHaveTheirStatus) {
  constexpr auto kV4 = AddressFamily::IPv4, kV6 = AddressFamily::IPv6;
  const std::tuple<AddressFamily, std::vector<int>, std::vector<int>, std::optional<std::int32_t>>
      cases[] = {
          {kV4, {3}, {0, 6, 9, 11}, 11002},
          {kV4, {3}, {1, 7, 8, 10, 12, 13, 14, 15, 16, 255}, 11003},
          {kV4, {3}, {2}, 11004},
          {kV4, {3}, {3}, 11005},
          {kV4, {3}, {4}, 11009},
          {kV4, {3}, {5}, 11012},
          {kV4, {4}, {0, 1}, 11016},
          {kV4, {11}, {0, 2, 255}, 11013},
          {kV4, {11}, {1}, 11014},
          {kV4, {12}, {0, 1, 2}, 11015},
          {kV4, {0, 1, 5, 8, 13, 255}, {0, 1, 2, 3}, std::nullopt},
          {kV6, {1}, {0, 6}, 11002},
          {kV6, {1}, {1, 2, 3, 5, 7, 255}, 11003},
          {kV6, {1}, {4}, 11005},
          {kV6, {2}, {0, 1}, 11009},
          {kV6, {3}, {0, 2, 255}, 11013},
          {kV6, {3}, {1}, 11014},
          {kV6, {4}, {0, 2, 3}, 11015},
          {kV6, {4}, {1}, 11004},
          {kV6, {0, 5, 11, 128, 129, 137}, {0}, std::nullopt},
      };
  for (const auto& [family, types, codes, status] : cases)
    for (const int type : types)
      for (const int code : codes)
        EXPECT_EQ(IcmpErrorStatus(family, static_cast<std::uint8_t>(type),
                                  static_cast<std::uint8_t>(code)),
                  status)
            << (family == kV6 ? "6: " : "4: ") << type << "/" << code;
}

TEST(IcmpPacket, RefusalsToSendHaveTheirStatus) {
  const std::pair<std::int32_t, std::int32_t> cases[] = {
      {0, 0},         {10040, 11009}, {10050, 11002}, {10051, 11002}, {10064, 11003},
      {10065, 11003}, {10055, 11006}, {10013, 11050}, {10022, 11050}, {20001, 11050}};
  for (const auto& [error, status] : cases) EXPECT_EQ(EchoSendStatus(error), status) << error;
}

TEST_P(IcmpPackets, RepliesAreReadAndErrorsWithWhatTheyQuote) {
  for (const Options& options : f.options) {
    for (const std::string& data : {""s, "x"s, "some data"s}) {
      IpFields fields = From(f.there, f.here, options);
      fields.ttl = 57;
      const auto answer =
          Read(IpBytes(fields, EchoMessage(f.replies, 0xFFFE, 0x8001, data)), options);
      ExpectAnswer(answer, {0, 57, Ip(f.there), Ip(f.there), 0xFFFE, 0x8001});
      EXPECT_EQ(answer ? std::string(answer->data.begin(), answer->data.end()) : "none", data);
    }
    for (const Options& quotedOptions : f.options) {
      const auto answer = Read(ErrorPacket(options, quotedOptions), options);
      ExpectAnswer(answer, {11013, 64, Sender(f.router), Ip(f.there), 0x1234, 0x0A0B});
      EXPECT_TRUE(answer && answer->data.empty());
    }
  }
}

// The checksum is made right for each cut, so that the lengths alone decide. Eight bytes of the
// request are all that an error message must quote.
TEST_P(IcmpPackets, ErrorsCutAnywhere) {
  for (const Options& options : f.options)
    for (const Options& quotedOptions : f.options) {
      const std::string whole = ErrorPacket(options, quotedOptions);
      const std::size_t message = HeaderSize(options);
      const std::size_t enough = message + 8 + HeaderSize(quotedOptions) + 8;
      for (std::size_t size = 0; size <= whole.size(); ++size) {
        std::string packet = whole.substr(0, size);
        if (size >= message + 8) {
          packet.replace(message, std::string::npos,
                         testkit::WithIcmpChecksum(packet.substr(message)));
        }
        EXPECT_EQ(Read(packet, options).has_value(), size >= enough) << size;
      }
    }
}

// The length of an IPv6 message is what the system says.
TEST_P(IcmpPackets, RepliesCutAnywhere) {
  const Options& options = f.options[1];
  const bool v6 = f.family == AddressFamily::IPv6;
  const std::string whole =
      IpBytes(From(f.there, f.here, options), EchoMessage(f.replies, 1, 2, "\x11\x22\x33\x44"));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const bool enough = v6 && size >= HeaderSize(options) + 8;
    EXPECT_EQ(Read(whole.substr(0, size), options).has_value(), enough) << size;
  }
  const auto padded = Read(whole + "padding", options);
  ASSERT_TRUE(padded);
  EXPECT_EQ(padded->data.size(), v6 ? 11u : 4u);
}

// A link-local address lies on the link that the answer has come from.
TEST(IcmpPacket, LinkLocalAddressesHaveTheirLink) {
  const std::string quoted = IpBytes(From("fe80::1", "fe80::7"), EchoMessage(128, 1, 2, ""));
  const std::string error = IcmpErrorMessage(1, 3, quoted);
  const auto answer = ReadIcmp6Message(BytesOf(error), Ip("fe80::1%9"), 64);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->destination, Ip("fe80::7%9"));
}

TEST(IcmpPacket, OthersThanIPv6AnswersAreNone) {
  const std::string request = EchoMessage(128, 1, 2, "data");
  const auto errorAbout = [](const Options& options, const std::string& payload) {
    return IcmpErrorMessage(1, 0, IpBytes(From("fd00::1", "fd00::2", options), payload));
  };
  std::string version4 = errorAbout({58, ""}, request);
  version4[8] = '\x45';
  const std::pair<const char*, std::string> cases[] = {
      {"a request", request},
      {"a reply of IPv4", EchoMessage(0, 1, 2, "data")},
      {"a reply with a code", "\x81\1"s + request.substr(2)},
      {"a redirect", IcmpErrorMessage(137, 0, IpBytes(From("fd00::1", "fd00::2"), request))},
      {"an error about IPv4", version4},
      {"an error about a reply", errorAbout({58, ""}, EchoMessage(129, 1, 2, "data"))},
      {"an error about a datagram", errorAbout({60, "\x11\0\1\4\0\0\0\0"s}, request)},
      {"an error about a later fragment", errorAbout({44, "\x3A\0\0\x08\0\0\0\7"s}, request)},
      {"an error with too long options", errorAbout({60, "\x3A\x09\1\4\0\0\0\0"s}, request)},
      {"an error about an encrypted packet", errorAbout({50, "\x3A\0\1\4\0\0\0\0"s}, request)},
      {"an error about nothing", IcmpErrorMessage(1, 0, "")},
  };
  for (const auto& [what, message] : cases)
    EXPECT_FALSE(ReadIcmp6Message(BytesOf(message), Ip("fd00::9"), 64)) << what;
}

TEST(IcmpPacket, OthersThanIPv4AnswersAreNone) {
  const std::string request = EchoMessage(8, 1, 2, "data");
  const std::string reply = EchoMessage(0, 1, 2, "data");
  const auto errorAbout = [](const IpFields& fields, const std::string& payload) {
    return IpBytes(From(kRouter, kHere), IcmpErrorMessage(3, 1, IpBytes(fields, payload)));
  };
  const IpFields in = From(kThere, kHere), out = From(kHere, kThere);
  const auto udp = [](IpFields fields) {
    fields.protocol = 17;
    return fields;
  };
  const auto fragment = [](IpFields fields) {
    fields.fragmentOffset = 185;
    return fields;
  };
  const auto changed = [&](std::size_t at, const std::string& to) {
    return IpBytes(in, reply).replace(at, to.size(), to);
  };
  const std::string redirect = IcmpErrorMessage(5, 1, IpBytes(out, request));
  const std::pair<const char*, std::string> cases[] = {
      {"a request", IpBytes(in, request)},
      {"another protocol", IpBytes(udp(in), reply)},
      {"a later fragment", IpBytes(fragment(in), reply)},
      {"another version", changed(0, "\x65")},
      {"a header of 16 bytes", changed(0, "\x44")},
      {"shorter than its header", changed(2, "\0\x13"s)},
      {"a wrong checksum", changed(22, "\x12")},
      {"a reply with a code", IpBytes(in, testkit::WithIcmpChecksum("\0\1"s + reply.substr(2)))},
      {"a redirect", IpBytes(From(kRouter, kHere), redirect)},
      {"an error about a datagram", errorAbout(udp(out), request)},
      {"an error about a later fragment", errorAbout(fragment(out), request)},
      {"an error about a reply", errorAbout(out, reply)},
      {"an error about nothing", IpBytes(From(kRouter, kHere), IcmpErrorMessage(3, 1, ""))},
  };
  for (const auto& [what, packet] : cases) EXPECT_FALSE(ReadIcmpPacket(BytesOf(packet))) << what;
}

// What a datagram socket gives: no IP headers.
TEST_P(IcmpPackets, MessagesWithoutHeader) {
  const std::string reply = EchoMessage(f.replies, 3, 4, "data");
  const std::string request = EchoMessage(f.asks, 3, 4, "data");
  const auto read = ReadEchoReply(f.family, BytesOf(reply));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->sequence, 4);
  EXPECT_EQ(read->data.size(), 4u);
  EXPECT_FALSE(ReadEchoReply(f.family, BytesOf(request)));
  const auto quoted = ReadQuotedRequest(f.family, BytesOf(request));
  ASSERT_TRUE(quoted);
  EXPECT_EQ(quoted->identifier, 3);
  EXPECT_FALSE(ReadQuotedRequest(f.family, BytesOf(reply)));
  for (std::size_t size = 0; size < 8; ++size) {
    EXPECT_FALSE(ReadEchoReply(f.family, BytesOf(reply.substr(0, size)))) << size;
    EXPECT_FALSE(ReadQuotedRequest(f.family, BytesOf(request.substr(0, size)))) << size;
  }
}

INSTANTIATE_TEST_SUITE_P(Families, IcmpPackets, testing::Values(0, 1),
                         [](const auto& family) { return family.param == 1 ? "IPv6" : "IPv4"; });

TEST(IcmpExtensions, OnlySoundOnesCount) {
  const std::string label = "\x03\xE8\x1B\x40"s;
  const std::string sound = testkit::MplsExtensions(label);
  const auto changed = [&](std::size_t at, char to) {
    std::string bytes = sound;
    bytes[at] = to;
    return bytes;
  };
  const auto withoutSum = [&](std::string bytes) {
    bytes[2] = bytes[3] = 0;
    return bytes;
  };
  const struct {
    const char* what;
    std::string bytes;
    std::size_t labels;
  } cases[] = {
      {"sound", sound, 1},
      {"no checksum", withoutSum(sound), 1},
      {"a wrong checksum", changed(3, '\x7F'), 0},
      {"another version", withoutSum(changed(0, '\x10')), 0},
      {"another class", withoutSum(changed(6, '\x02')), 0},
      {"longer than the message", withoutSum(changed(5, '\x09')), 0},
      {"shorter than its header", withoutSum(changed(5, '\x03')), 0},
      {"half a label", withoutSum(testkit::MplsExtensions(label.substr(0, 2))), 0},
      {"an end that is missing, of too many", testkit::MplsExtensions(std::string(200, '\x10')), 16},
      {"nothing", "", 0},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ReadMplsLabels(BytesOf(c.bytes)).size(), c.labels) << c.what;
  EXPECT_EQ(ReadMplsLabels(BytesOf(sound)), (std::vector<MplsLabel>{{16'001, 5, true, 64}}));
}

TEST(IcmpExtensions, WhereTheyBegin) {
  for (const Family& f : kFamilies) {
    const std::string quoted = IpBytes(From(f.here, f.there), EchoMessage(f.asks, 1, 2, "data"));
    const std::string sound = testkit::MplsExtensions("\x03\xE8\x1B\x40");
    const std::string message = IcmpErrorMessage(f.expired, 0, quoted, sound);
    const std::size_t length = f.family == AddressFamily::IPv6 ? 4 : 5;
    std::string old = message, shorter = message;
    old[length] = 0;  // as routers did before the length was told
    shorter[length] = 1;
    std::string unsummed = old;
    unsummed[8 + 128 + 2] = unsummed[8 + 128 + 3] = 0;
    const std::pair<std::string, std::size_t> cases[] = {
        {message, sound.size()}, {old, sound.size()}, {shorter, 0}, {unsummed, 0}, {quoted, 0}};
    for (const auto& [bytes, size] : cases)
      EXPECT_EQ(FindExtensions(f.family, BytesOf(bytes)).size(), size);
    for (std::size_t cut = 0; cut < message.size(); ++cut) {
      EXPECT_TRUE(
          ReadMplsLabels(FindExtensions(f.family, BytesOf(message.substr(0, cut)))).empty());
    }
  }
}

}  // namespace
}  // namespace netro
