// What becomes of each record of a reply: types, names, and replies that are cut short or lie.
#include "DnsTestKit.h"

namespace netro {
namespace {

using namespace testkit::dns;

constexpr std::int32_t kGarbled = 59;

// What the client asks for here: ID 25, recursion, all records of "www.test".
const std::string kQuery =
    "\0\x19\x01\0\0\x01\0\0\0\0\0\0"s + Name("www.test") + U16(TYPE_ALL) + U16(1);

// The client after it has been answered with what `build` makes of an empty reply.
class Answered {
 public:
  explicit Answered(std::function<void(DnsReply&)> build) : Answered(Replying(std::move(build))) {}
  explicit Answered(const std::string& bytes)
      : Answered([&](const std::string&) -> Replies { return {bytes}; }) {}
  const QueryDNSCLS* operator->() const { return &dns_; }
  DNSCLS First() const { return dns_.CountAN() > 0 ? *dns_.EntryAN(1) : DNSCLS(); }

  std::int32_t result = -1;

 private:
  explicit Answered(DnsServer::Answer answer) {
    const DnsServer server(std::move(answer));
    PointAt(dns_, server.Port(), TYPE_ALL);
    result = dns_.QueryDNS();
  }

  QueryDNSCLS dns_;
};

// A record of this data with another behind it, which must be found whatever the first one holds.
Answered AnsweredWith(int type, const std::string& rdata) {
  return Answered([&](DnsReply& reply) {
    reply.Answer(Record(kQuestion, type, rdata))
        .Answer(Record(Name("next.test"), 1, Octets({192, 0, 2, 99})));
  });
}

// The record's data, or how its reading went wrong.
std::string DataOf(int type, const std::string& rdata) {
  const Answered answer = AnsweredWith(type, rdata);
  if (answer.result != 0) return "(result " + std::to_string(answer.result) + ")";
  if (answer->CountAN() != 2 || answer->EntryAN(2)->Query() != "next.test" ||
      answer->EntryAN(2)->Data() != "192.0.2.99")
    return "(the next record is lost)";
  return answer.First().Data();
}

struct Row {
  int type;
  std::string rdata;
  std::string data;
};

const std::string kName = Name("host.test");
const std::string kTwoNames = kName + Name("b.test");

// Types whose data has an end of its own. What stands behind it is no concern of theirs.
const std::vector<Row> kBoundedRows = {
    {TYPE_A, Octets({192, 0, 2, 1}), "192.0.2.1"},
    {TYPE_A, Octets({255, 255, 255, 255}), "255.255.255.255"},
    {TYPE_NS, kName, "host.test"},
    {TYPE_CNAME, kName, "host.test"},
    {TYPE_CNAME, Name(""), ""},
    {TYPE_MB, kName, "host.test"},
    {TYPE_MG, kName, "host.test"},
    {TYPE_MR, kName, "host.test"},
    {TYPE_PTR, kQuestion, "www.test"},
    {TYPE_SOA, Soa("ns.test"), "ns.test"},
    {TYPE_HINFO, Text("INTEL-386") + Text("UNIX V"), "\"INTEL-386\" \"UNIX V\""},
    {TYPE_HINFO, Text("a\"b\\") + Text(""), "\"a\\\"b\\\\\" \"\""},
    {TYPE_MINFO, kTwoNames, "host.test b.test"},
    {TYPE_RP, kTwoNames, "host.test b.test"},
    {TYPE_MX, U16(10) + kName, "host.test"},
    {TYPE_RT, U16(10) + kName, "host.test"},
    {TYPE_AFSDB, U16(1) + kName, "[AFS] host.test"},
    {TYPE_AFSDB, U16(2) + kName, "[DCE] host.test"},
    {TYPE_AFSDB, U16(3) + kName, "host.test"},
    {TYPE_AAAA, std::string(15, '\0') + '\x01', "0000:0000:0000:0000:0000:0000:0000:0001"},
    {TYPE_AAAA, Octets({0x20, 1, 0xD, 0xB8, 0, 0, 0xAB, 0xCD, 0, 0, 0, 0, 0, 0, 0x10, 0}),
     "2001:0db8:0000:abcd:0000:0000:0000:1000"},
    {TYPE_SRV, U16(1) + U16(2) + U16(3) + kName, "host.test"},
    {TYPE_LOC, Octets({0, 0x12, 0x16, 0x13}) + U32(0x80000000) + U32(0x80000000) + U32(10000000),
     "0 0 0.000 N 0 0 0.000 E 0.00m 1m 10000m 10m"},
};

// Types whose data is all that the length gives.
const std::vector<Row> kOpenRows = {
    {TYPE_WKS, Octets({10, 0, 0, 1, 6}), "10.0.0.1 6"},
    {TYPE_WKS, Octets({10, 0, 0, 1, 17, 1, 0x80, 0xAA}), "10.0.0.1 17 00000001 10000000 10101010"},
    {TYPE_TXT, Text("v=spf1 -all"), "v=spf1 -all"},
    {TYPE_TXT, Text("say \"hi\" \\"), "say \"hi\" \\"},
    {TYPE_TXT, Text(""), ""},
    {TYPE_TXT, Text("one") + Text("two three") + Text("\"\\"),
     "\"one\" \"two three\" \"\\\"\\\\\""},
    {TYPE_TXT, Text("") + Text(""), "\"\" \"\""},
    {TYPE_TXT, Text(std::string(255, 'x')), std::string(255, 'x')},
    {TYPE_TXT, Text("\0\xFF\r\n"s), "\0\xFF\r\n"s},
    {TYPE_X25, Text("311061700956"), "311061700956"},
    {TYPE_ISDN, Text("150862028003217"), "150862028003217"},
    {TYPE_ISDN, Text("150862028003217") + Text("004"), "\"150862028003217\" \"004\""},
    {TYPE_ATMA, Octets({0, 0x39, 0x24, 0x6F, 0x00}), "(NSAP) 39246F00"},
    {TYPE_ATMA, "\x01"s + "358400123456", "(E164) 358400123456"},
    {TYPE_ATMA, Octets({2, 1, 2, 3}), "UNKNOWN ATMA"},
    {TYPE_NULL, "", ""},
    {TYPE_NULL, Octets({0}), "00"},
};

TEST(DnsRecord, EachTypeHasItsText) {
  for (const Row& row : kOpenRows) EXPECT_EQ(DataOf(row.type, row.rdata), row.data) << row.type;
  for (const int type : {TYPE_MD, TYPE_MF, TYPE_NULL, TYPE_NSAP, TYPE_NSAP_PTR, TYPE_SIG, TYPE_KEY,
                         TYPE_PX, TYPE_GPOS, TYPE_NXT, TYPE_EID, TYPE_NIMLOC})
    EXPECT_EQ(DataOf(type, Octets({0x0A, 0xFF, 0x00, 0x1B})), "0A FF 00 1B") << type;
  for (const int type : {257, 65535}) EXPECT_EQ(DataOf(type, "\n"), "0A") << type;
  for (const Row& row : kBoundedRows) {
    EXPECT_EQ(DataOf(row.type, row.rdata), row.data) << row.type;
    EXPECT_EQ(DataOf(row.type, row.rdata + "\x01xyz"), row.data) << "what is behind is skipped";
  }
}

TEST(DnsRecord, DataCutShortIsGarbled) {
  for (const Row& row : kBoundedRows) {
    if (row.rdata == kQuestion) continue;  // half a pointer is the next test's
    for (std::size_t size = 0; size < row.rdata.size(); ++size)
      EXPECT_EQ(AnsweredWith(row.type, row.rdata.substr(0, size)).result, kGarbled)
          << row.type << " cut to " << size;
  }
}

TEST(DnsRecord, DataDoesNotReachIntoTheNextRecord) {
  const std::pair<int, std::string> kRows[] = {
      {TYPE_TXT, "\x05"s + "four"},     {TYPE_X25, "\xFF"},      {TYPE_TXT, Text("one") + "\x01"},
      {TYPE_ISDN, Text("1") + "\x01"},  {TYPE_CNAME, "\x03www"}, {TYPE_CNAME, "\xC0"},
      {TYPE_WKS, Octets({10, 0, 0, 1})}};
  for (const auto& [type, rdata] : kRows)
    EXPECT_EQ(AnsweredWith(type, rdata).result, kGarbled) << type << " " << rdata;
}

TEST(DnsRecord, NumbersAreSignedOrNot) {
  for (const std::uint32_t ttl : {0u, 300u, 0x80000000u, 4294967295u}) {
    const Answered answer(
        [&](DnsReply& reply) { reply.Answer(Record(Name("Mixed.Case.Test"), 65535, "", ttl, 3)); });
    ASSERT_EQ(answer.result, 0);
    EXPECT_EQ(answer.First().TTL(), static_cast<double>(ttl));
    EXPECT_EQ(answer.First().Query(), "Mixed.Case.Test");
    EXPECT_EQ(answer.First().DataType(), 65535);
  }
  for (const int type : {TYPE_MX, TYPE_RT, TYPE_AFSDB}) {
    EXPECT_EQ(AnsweredWith(type, U16(256) + kName).First().Pref(), 256) << type;
    EXPECT_EQ(AnsweredWith(type, U16(65535) + kName).First().Pref(), -1) << type;
  }
  using Numbers = std::vector<std::int32_t>;
  const auto srv = [](std::size_t preference, std::size_t weight, std::size_t port) {
    const std::string rdata = U16(preference) + U16(weight) + U16(port) + kName;
    const DNSCLS record = AnsweredWith(TYPE_SRV, rdata).First();
    return Numbers{record.SVR_Pref(), record.SVR_Weight(), record.SVR_Port()};
  };
  EXPECT_EQ(srv(1, 2, 259), (Numbers{1, 2, 259}));
  EXPECT_EQ(srv(65534, 65535, 65533), (Numbers{-2, 65535, 65533}));
}

TEST(DnsRecord, StartOfAuthority) {
  const std::string most = U32(4294967295);
  const std::string numbers = most + U32(7200) + U32(3600) + U32(1209600) + most;
  const DNSCLS soa = AnsweredWith(TYPE_SOA, kName + Name("admin.test") + numbers).First();
  EXPECT_EQ(soa.Data() + " " + soa.SOA_RName(), "host.test admin.test");
  EXPECT_EQ((std::vector<double>{soa.SOA_Serial(), 1.0 * soa.SOA_Refresh(), 1.0 * soa.SOA_Retry(),
                                 1.0 * soa.SOA_Expire(), 1.0 * soa.SOA_Minimum()}),
            (std::vector<double>{4294967295.0, 7200, 3600, 1209600, -1}));
}

TEST(DnsRecord, MailboxKeepsItsDots) {
  const std::string test = Name("test");
  std::vector<std::pair<std::string, std::string>> cases = {
      {Name("hostmaster.test"), "hostmaster@test"},
      {Text("john.doe") + Name("example.test"), "john.doe@example.test"},
      {Text("a+b") + kQuestion, "a+b@www.test"},
      {kQuestion, "www@test"},
  };
  for (const std::string& none :
       {Name(""), test, Text("two words") + test, Text("a@b") + test, Text("a.") + test,
        Text("a..b") + test, Text("a\\b") + test, Text("bell\a") + test,
        Name("a").substr(0, 2) + Text("x.y\r\n") + test})
    cases.emplace_back(none, "");
  for (const auto& [name, mailbox] : cases) {
    const DNSCLS soa = AnsweredWith(TYPE_SOA, kName + name + std::string(20, '\0')).First();
    EXPECT_EQ(soa.SOA_Mailbox(), mailbox);
  }
}

TEST(DnsRecord, StringsAreCounted) {
  for (const int type : {TYPE_TXT, TYPE_X25, TYPE_ISDN}) {
    const DNSCLS one = AnsweredWith(type, Text("\"a\" \"b\"")).First();
    const DNSCLS several = AnsweredWith(type, Text("a") + Text("b")).First();
    EXPECT_EQ(one.Data(), several.Data());
    EXPECT_EQ(one.StringCount(), 1);
    EXPECT_EQ(several.StringCount(), 2);
  }
  EXPECT_EQ(AnsweredWith(TYPE_TXT, "").First().StringCount(), 0);
}

// Thousandths of an arc second, north and east positive.
std::uint32_t Angle(int degrees, int minutes, int thousandths, int sign) {
  const int amount = (degrees * 60 + minutes) * 60'000 + thousandths;
  return 0x80000000u + static_cast<std::uint32_t>(sign * amount);
}

// The examples of RFC 1876, section 4, and the ends of the ranges.
TEST(DnsRecord, Locations) {
  const struct {
    int size, horizontal, vertical;
    std::uint32_t latitude, longitude, altitude;
    std::string north, east, rest;
  } kCases[] = {
      {0x33, 0x16, 0x13, Angle(42, 21, 54'000, 1), Angle(71, 6, 18'000, -1), 9'997'600,
       "42 21 54.000 N", "71 6 18.000 W", "-24.00m 30m 10000m 10m"},
      {0x12, 0x24, 0x13, Angle(42, 21, 43'952, 1), Angle(71, 5, 6'344, -1), 9'997'600,
       "42 21 43.952 N", "71 5 6.344 W", "-24.00m 1m 200m 10m"},
      {0x12, 0x16, 0x13, Angle(32, 7, 19'000, -1), Angle(116, 2, 25'000, 1), 10'001'000,
       "32 7 19.000 S", "116 2 25.000 E", "10.00m 1m 10000m 10m"},
      {0x00, 0x51, 0x99, Angle(89, 59, 59'999, -1), Angle(0, 0, 1, 1), 0, "89 59 59.999 S",
       "0 0 0.001 E", "-100000.00m 0.00m 0.50m 90000000m"},
      {0x12, 0x16, 0x13, Angle(90, 0, 0, 1), Angle(180, 0, 0, -1), 4294967295, "90 0 0.000 N",
       "180 0 0.000 W", "42849672.95m 1m 10000m 10m"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.north);
    const DNSCLS loc =
        AnsweredWith(TYPE_LOC, Octets({0, c.size, c.horizontal, c.vertical}) + U32(c.latitude) +
                                   U32(c.longitude) + U32(c.altitude))
            .First();
    EXPECT_EQ(loc.Data(), c.north + " " + c.east + " " + c.rest);
    EXPECT_EQ(loc.LOC_LATITUDE_COORD(), c.north);
    EXPECT_EQ(loc.LOC_LONGITUDE_COORD(), c.east);
    EXPECT_EQ((std::vector<double>{loc.LOC_LATITUDE(), loc.LOC_LONGITUDE()}),
              (std::vector<double>{1.0 * c.latitude, 1.0 * c.longitude}));
    EXPECT_EQ((std::vector<std::int32_t>{loc.LOC_ALTITUDE(), loc.LOC_SIZE(), loc.LOC_HORIZ_PRE(),
                                         loc.LOC_VERT_PRE()}),
              (std::vector<std::int32_t>{static_cast<std::int32_t>(c.altitude), c.size,
                                         c.horizontal, c.vertical}));
  }
}

TEST(DnsRecord, LocationOfNoPlaceOnEarthIsDumped) {
  const std::string zero = U32(0x80000000), place = zero + zero + U32(0);
  const std::string good = Octets({0, 0x12, 0x16, 0x13});
  const std::string kCases[] = {
      Octets({1, 0x12, 0x16, 0x13}) + place,
      Octets({0, 0xA0, 0x16, 0x13}) + place,
      Octets({0, 0x12, 0x1A, 0x13}) + place,
      Octets({0, 0x12, 0x16, 0xFF}) + place,
      good + U32(Angle(90, 0, 1, 1)) + place.substr(4),
      good + U32(0) + place.substr(4),
      good + zero + U32(Angle(180, 0, 1, -1)) + U32(0),
  };
  for (const std::string& rdata : kCases)
    EXPECT_EQ(DataOf(TYPE_LOC, rdata), DataOf(TYPE_NULL, rdata));
}

TEST(DnsName, PointersAreFollowed) {
  const Answered answer([](DnsReply& reply) {
    const std::size_t mail = reply.Size();  // its owner is a whole name
    reply.Answer(Record(Name("mail.test"), TYPE_MX, U16(1) + "\x03sub" + kQuestion));
    const std::size_t data = reply.Size() - 6;  // "sub" and the pointer
    reply.Answer(Record(Pointer(data), TYPE_CNAME, Pointer(mail)))
        .Answer(Record("\x01x"s + Pointer(data), TYPE_SOA,
                       Pointer(mail) + "\x01y"s + Pointer(mail + 5) + std::string(20, '\0')));
  });
  ASSERT_EQ(answer.result, 0);
  EXPECT_EQ(answer->EntryAN(1)->Data(), "sub.www.test");
  EXPECT_EQ(answer->EntryAN(2)->Query(), "sub.www.test");
  EXPECT_EQ(answer->EntryAN(2)->Data(), "mail.test");
  EXPECT_EQ(answer->EntryAN(3)->Query(), "x.sub.www.test");
  EXPECT_EQ(answer->EntryAN(3)->SOA_RName(), "y.test");
}

TEST(DnsName, LabelsMayHoldAnyByte) {
  const std::string label = "a\0\xFF -_"s;
  const Answered answer(
      [&](DnsReply& r) { r.Answer(Record(Text(label) + Name("test"), TYPE_CNAME, Name(""))); });
  EXPECT_EQ(answer.First().Query(), label + ".test");
}

// A name of labels of 63 bytes and one of the rest: `octets` on the wire, zero byte included.
std::string NameOf(std::size_t octets) {
  std::string name;
  for (std::size_t left = octets - 1; left > 0;) {
    const std::size_t label = std::min<std::size_t>(64, left);
    name += Text(std::string(label - 1, 'n'));
    left -= label;
  }
  return name + '\0';
}

// Owner names at the end of a chain of pointers that begins in the data of another record.
std::string Chain(std::size_t begin, int pointers) {
  std::string bytes = Name("z");
  for (int i = 0; i < pointers; ++i)
    bytes += Pointer(i == 0 ? begin : begin + 3 + 2 * (static_cast<std::size_t>(i) - 1));
  return bytes;
}

TEST(DnsName, LimitsHold) {
  const std::string half = NameOf(129);  // 128 octets of labels and the zero byte
  const std::string open = half.substr(0, half.size() - 1);
  const struct {
    const char* name;
    // The owner of the second record, which may point into the data of the first, at `data`.
    std::function<std::string(std::size_t data, std::size_t own)> owner;
    std::string data;
    bool good;
  } kCases[] = {
      {"255 octets", [](auto, auto) { return NameOf(255); }, "", true},
      {"256 octets", [](auto, auto) { return NameOf(256); }, "", false},
      {"255 octets over a pointer",
       [&](auto data, auto) { return NameOf(127).substr(0, 126) + Pointer(data); }, half, true},
      {"257 octets over a pointer", [&](auto data, auto) { return open + Pointer(data); }, half,
       false},
      {"itself", [](auto, auto own) { return Pointer(own); }, "", false},
      {"itself behind a label", [](auto, auto own) { return "\x01x"s + Pointer(own); }, "", false},
      {"forward", [](auto, auto own) { return Pointer(own + 2) + Name("x"); }, "", false},
      {"behind the end", [](auto, auto) { return Pointer(0x3FFF); }, "", false},
      {"two in a ring", [](auto data, auto) { return Pointer(data); }, "", false},
      {"length 64", [](auto, auto) { return "\x40"s + std::string(64, 'x') + '\0'; }, "", false},
      {"length 128", [](auto, auto) { return "\x80"s + std::string(128, 'x') + '\0'; }, "", false},
      {"length 191", [](auto, auto) { return "\xBF"s + std::string(191, 'x') + '\0'; }, "", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Answered answer([&](DnsReply& reply) {
      const std::size_t data = reply.Size() + 12;
      const bool ring = c.name == "two in a ring"s;
      reply.Answer(Record(kQuestion, TYPE_NULL, ring ? Pointer(data + 2) + Pointer(data) : c.data));
      reply.Answer(Record(c.owner(data, reply.Size()), TYPE_A, Octets({1, 2, 3, 4})));
    });
    EXPECT_EQ(answer.result, c.good ? 0 : kGarbled);
  }
}

TEST(DnsName, PointersAreLimitedTo128) {
  for (const int pointers : {1, 127, 128, 129, 200}) {
    const Answered answer([&](DnsReply& reply) {
      const std::size_t data = reply.Size() + 12;
      const std::string chain = Chain(data, pointers - 1);  // the owner is the last one
      reply.Answer(Record(kQuestion, TYPE_NULL, chain));
      reply.Answer(Record(Pointer(pointers == 1 ? data : data + chain.size() - 2), TYPE_A,
                          Octets({1, 2, 3, 4})));
    });
    EXPECT_EQ(answer.result, pointers <= 128 ? 0 : kGarbled) << pointers;
    EXPECT_TRUE(answer->CountAN() != 2 || answer->EntryAN(2)->Query() == "z");
  }
}

TEST(DnsMessage, CutAnywhereBehindTheQuestionIsGarbled) {
  DnsReply reply(kQuery);
  const std::size_t begin = reply.Size();
  reply.Answer(Record(kQuestion, TYPE_MX, U16(1) + Name("mail") + "rest"))
      .Authority(Record(Name("test"), TYPE_SOA, Soa()))
      .Additional(Record(Name(""), TYPE_TXT, Text("one") + Text("two")));
  ASSERT_GT(reply.Size(), begin + 50);
  for (std::size_t size = begin; size < reply.Size(); ++size)
    EXPECT_EQ(Answered(reply.Bytes().substr(0, size)).result, kGarbled) << size;
  EXPECT_EQ(Answered(reply.Bytes()).result, 0);
}

TEST(DnsMessage, CountsAreNotBelieved) {
  const std::string record = Record(kQuestion, TYPE_A, Octets({1, 2, 3, 4}));
  EXPECT_EQ(Answered([&](DnsReply& r) { r.Answer(record).AnswerCount(65535); }).result, kGarbled);
  EXPECT_EQ(Answered([&](DnsReply& r) { r.AnswerCount(1); }).result, kGarbled);
  const Answered fewer([&](DnsReply& r) { r.Answer(record).Answer(record).AnswerCount(1); });
  EXPECT_EQ(fewer.result, 0);
  EXPECT_EQ(fewer->CountAll(), 1);
}

TEST(DnsMessage, BigReplyIsReadWhole) {
  const Answered answer([](DnsReply& reply) {
    for (int i = 0; i < 4000; ++i)
      reply.Answer(Record(kQuestion, TYPE_A, Octets({10, 0, i / 256, i % 256})));
  });
  ASSERT_EQ(answer.result, 0);
  ASSERT_EQ(answer->CountAN(), 4000);
  EXPECT_EQ(answer->EntryAN(1)->Data(), "10.0.0.0");
  EXPECT_EQ(answer->EntryAN(4000)->Data(), "10.0.15.159");
  EXPECT_EQ(answer->InBuffer().size(), 12u + 14u + 4000u * 16u);
}

}  // namespace
}  // namespace netro
