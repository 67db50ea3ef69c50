// QueryDNSCLS beyond its defaults: escaped names, identifiers, EDNS, truncation, response codes.
#include "DnsTestKit.h"

namespace netro {
namespace {

using namespace testkit::dns;

const std::string kHost = AddressRecord(1);

void Good(DnsReply& reply) { reply.Answer(kHost); }

// An OPT record: its class is the size, its time to live the rest.
std::string Opt(int size, std::uint32_t rest, const std::string& options = "") {
  return Record(Name(""), 41, options, rest, size);
}

struct QueryDnsOptions : testing::Test {
  // Asks for `domain` a server that answers all with this.
  std::int16_t Ask(const std::function<void(DnsReply&)>& build,
                   const std::string& domain = "www.test") {
    DnsServer server(Replying(build));
    PointAt(dns_, server.Port(), dns_.QueryType(), domain);
    const std::int16_t code = dns_.QueryDNS();
    queries_ = server.Queries();
    return code;
  }

  QueryDNSCLS dns_;
  std::vector<std::string> queries_;
};

TEST_F(QueryDnsOptions, EscapedNames) {
  const std::string full = std::string(62, 'a');
  const std::tuple<std::string, std::string, std::string> kCases[] = {
      {R"(a\.b.example)", Text("a.b") + Name("example"), R"(a\.b.example)"},
      {R"(a\.b.example.)", Text("a.b") + Name("example"), R"(a\.b.example)"},
      {R"(x.a\.)", Text("x") + Text("a.") + '\0', R"(x.a\.)"},
      {R"(\046\\\"\x.y)", Text(".\\\"x") + Name("y"), R"(\.\\\"x.y)"},
      {R"(\097\065)", Name("aA"), "aA"},
      {"\\000\\255\\127~ \xFF.x", Text("\0\xFF\x7F~ \xFF"s) + Name("x"),
       R"(\000\255\127~\032\255.x)"},
      {"@$();.x", Text("@$();") + Name("x"), R"(\@\$\(\)\;.x)"},
      {".", Name(""), ""},
      {full + R"(\..x)", Text(full + ".") + Name("x"), full + R"(\..x)"},
  };
  dns_.EscapeNames(true);
  for (const auto& [text, wire, shown] : kCases) {
    SCOPED_TRACE(text);
    dns_.QueryType(TYPE_MINFO);
    const std::string two = kQuestion + kQuestion;
    ASSERT_EQ(Ask([&](auto& reply) { reply.Answer(Record(kQuestion, TYPE_MINFO, two)); }, text), 0);
    EXPECT_EQ(queries_[0].substr(12), wire + U16(TYPE_MINFO) + U16(1));
    EXPECT_EQ(dns_.EntryAN(1)->Query(), shown);
    EXPECT_EQ(dns_.EntryAN(1)->Data(), shown + " " + shown);
    EXPECT_EQ(dns_.EntryAN(text), dns_.EntryAN(1));
    EXPECT_EQ(dns_.EntryAN(shown), dns_.EntryAN(1));
    EXPECT_EQ(dns_.EntryAN("other"), nullptr);
  }
}

TEST_F(QueryDnsOptions, WhatIsNoEscapedName) {
  dns_.EscapeNames(true);
  for (const std::string& domain :
       {R"(\)"s, R"(x\)"s, R"(\25.x)"s, R"(\256.x)"s, R"(\9999)"s, R"(\1)"s, R"(\12)"s, R"(\1-2)"s,
        R"(a..b)"s, R"(.\.)"s, std::string(63, 'a') + R"(\.)",
        R"(\)" + std::string("\0", 1) + ".."})
    EXPECT_EQ(Ask(Good, domain), 59) << domain << queries_.size();
  EXPECT_TRUE(queries_.empty());
}

TEST_F(QueryDnsOptions, IdentifiersAsSet) {
  for (const std::int32_t id : {0, 25, 255, 256, 65'535})
    for (const bool udp : {true, false}) {
      dns_.UseUDP(udp);
      dns_.QueryID(id);
      EXPECT_EQ(Ask(Good), 0);
      EXPECT_EQ(queries_.at(0).substr(0, 2), U16(static_cast<std::size_t>(id)));
    }
  for (const std::int32_t id : {-2, 65'536}) {
    dns_.QueryID(id);
    EXPECT_EQ(Ask(Good), 10022);
    EXPECT_EQ(dns_.QueryZone(), 10022);
    EXPECT_TRUE(queries_.empty());
  }
}

TEST_F(QueryDnsOptions, RandomIdentifiersDiffer) {
  std::set<std::string> ids;
  dns_.QueryID(-1);
  for (int i = 0; i < 40; ++i) {
    dns_.UseUDP(i % 2 == 0);
    ASSERT_EQ(Ask(Good), 0);
    ids.insert(queries_[0].substr(0, 2));
  }
  EXPECT_GT(ids.size(), 35u);
}

TEST_F(QueryDnsOptions, OtherIdentifiersAreNoPartsOfAZone) {
  DnsServer zone = OverTcp([](const std::string& query) {
    return Framed(DnsReply(query).Answer(SoaRecord()).Bytes()) +
           Framed(DnsReply(query).Id(25).Answer(SoaRecord()).Bytes()) +
           Framed(DnsReply(query).Answer(HostRecord(1)).Bytes()) +
           Framed(DnsReply(query).Answer(SoaRecord()).Bytes());
  });
  PointAt(dns_, zone.Port(), TYPE_AXFR, "test");
  dns_.QueryID(-1);
  EXPECT_EQ(dns_.QueryZone(), 0);
  EXPECT_EQ(dns_.CountAN(), 3);
}

TEST_F(QueryDnsOptions, OptRecordOnTheWire) {
  const struct {
    std::int32_t size;
    bool dnssecOk;
    std::string opt;
  } kCases[] = {{0, false, ""},
                {512, false, Opt(512, 0)},
                {65'535, false, Opt(65'535, 0)},
                {4096, true, Opt(4096, 0x8000)},
                {0, true, Opt(1232, 0x8000)}};
  for (const auto& c : kCases)
    for (const bool udp : {true, false}) {
      dns_.UseUDP(udp);
      dns_.UDPSize(c.size);
      dns_.DNSSECOK(c.dnssecOk);
      ASSERT_EQ(Ask(Good), 0);
      EXPECT_EQ(queries_[0], "\0\x19\1\0\0\1\0\0\0\0\0"s + (c.opt.empty() ? '\0' : '\1') +
                                 Name("www.test") + U16(TYPE_A) + U16(1) + c.opt);
    }
  for (const std::int32_t size : {-1, 1, 511, 65'536}) {
    dns_.UDPSize(size);
    EXPECT_EQ(Ask(Good), 10022) << size;
    EXPECT_TRUE(queries_.empty());
  }
}

TEST_F(QueryDnsOptions, OptRecordOfTheReply) {
  const std::string options = U16(15) + U16(5) + U16(18) + "no!" + U16(65'001) + U16(0);
  const auto answer = [&](DnsReply& reply) {
    reply.Answer(kHost)
        .Additional(HostRecord(1))
        .Additional(Opt(1400, 0x00019234, options))
        .Additional(HostRecord(2));
  };
  for (const bool udp : {true, false}) {
    dns_.UseUDP(udp);
    dns_.UDPSize(0);
    EXPECT_EQ(Ask(answer), 0);
    EXPECT_EQ(dns_.EDNS(), nullptr);  // nothing was asked
    EXPECT_EQ(dns_.CountAR(), 3);

    dns_.UDPSize(1232);
    EXPECT_EQ(Ask(answer), 0);
    ASSERT_EQ(dns_.CountAR(), 2);
    EXPECT_EQ(dns_.EntryAR(2)->Query(), "h2.test");
    const EDNSCLS* edns = dns_.EDNS();
    ASSERT_NE(edns, nullptr);
    EXPECT_EQ((std::vector<std::int32_t>{edns->UDPSize(), edns->Version(), edns->ExtendedRCODE(),
                                         edns->Flags(), edns->DNSSECOK()}),
              (std::vector<std::int32_t>{1400, 1, 0, 0x9234, true}));
    ASSERT_EQ(edns->Options().size(), 2u);
    EXPECT_EQ(edns->Options()[0].Code, 15);
    EXPECT_EQ(edns->Options()[0].Data, "\0\x12no!"s);
    EXPECT_EQ(edns->Options()[1].Code, 65'001);
    EXPECT_EQ(edns->Options()[1].Data, "");

    EXPECT_EQ(Ask(Good), 0);
    EXPECT_EQ(dns_.EDNS(), nullptr);  // it is that of the last reply
  }
}

TEST_F(QueryDnsOptions, OptRecordsThatAreNone) {
  const std::tuple<std::vector<std::string>, std::int32_t, bool> kCases[] = {
      {{Opt(1232, 0)}, 0, true},
      {{Opt(1232, 0), Opt(512, 0)}, 1, true},  // the first counts
      {{Record(Name("x"), 41, "", 0, 1232)}, 1, false},
      {{Opt(1232, 0, "\0"s)}, 1, false},
      {{Opt(1232, 0, U16(10) + U16(9) + "12345678")}, 1, false},
      {{Opt(1232, 0, U16(10) + U16(8) + "12345678" + "\0\1\0"s)}, 1, false},
  };
  dns_.UDPSize(1232);
  for (const auto& [additional, left, read] : kCases) {
    EXPECT_EQ(Ask([&](auto& reply) {
                reply.Answer(kHost);
                for (const std::string& record : additional) reply.Additional(record);
              }),
              0);
    EXPECT_EQ(dns_.EDNS() != nullptr ? dns_.EDNS()->UDPSize() : 0, read ? 1232 : 0);
    EXPECT_EQ(dns_.CountAR(), left);
  }
}

TEST_F(QueryDnsOptions, AnOptRecordAloneIsNoRecord) {
  dns_.UDPSize(1232);
  const auto answer = [](auto& reply) { reply.Additional(Opt(1232, 0)); };
  EXPECT_EQ(Ask(answer), 59);
  EXPECT_NE(dns_.EDNS(), nullptr);
  dns_.UseUDP(false);
  EXPECT_EQ(Ask(answer), 22);
}

TEST_F(QueryDnsOptions, ReplyCode) {
  for (const bool udp : {true, false}) {
    dns_.UseUDP(udp);
    for (const int code : {0, 1, 3, 5, 15}) {
      const int told = code == 0 ? 22 : code;
      EXPECT_EQ(Ask([&](auto& reply) { reply.Code(code); }), udp ? 59 : told);
      EXPECT_EQ(dns_.ReplyCode(), code);
    }
    EXPECT_EQ(Ask([](auto& reply) { reply.Code(2).AnswerCount(1); }), udp ? 59 : 2);
    EXPECT_EQ(dns_.ReplyCode(), 2) << "of what cannot be read";
    // Without OPT in the query, the upper bits count for nothing.
    const auto badVersion = [](auto& reply) { reply.Additional(Opt(1232, 0x01000000)); };
    EXPECT_EQ(Ask(badVersion), 0);
    EXPECT_EQ(dns_.ReplyCode(), 0);
    dns_.UDPSize(1232);
    EXPECT_EQ(Ask(badVersion), udp ? 59 : 16);
    EXPECT_EQ(dns_.ReplyCode(), 16);
    dns_.UDPSize(0);
    dns_.Domain("");
    EXPECT_EQ(dns_.QueryDNS(), 51);
    EXPECT_EQ(dns_.ReplyCode(), -1);
  }
}

TEST_F(QueryDnsOptions, TruncatedRepliesAreFollowedWhenAskedFor) {
  for (const bool refused : {false, true}) {
    const auto reset = [](testkit::Connection& connection, auto&) { connection.Reset(); };
    const auto whole = ReplyingOverTcp(Good);
    DnsServer server(Replying([](auto& reply) { reply.Flags(0x83, 0x80).Authority(SoaRecord()); }),
                     refused ? DnsServer::Talk(reset) : whole);
    PointAt(dns_, server.Port());
    dns_.FollowTruncation(false);
    EXPECT_EQ(dns_.QueryDNS(), 0);
    EXPECT_TRUE(dns_.IsTruncated());
    EXPECT_FALSE(dns_.IsOverTCP());
    EXPECT_EQ(dns_.CountAll(), 1);
    EXPECT_EQ(server.Connections(), 0u);

    dns_.FollowTruncation(true);
    EXPECT_EQ(dns_.QueryDNS(), refused ? 10054 : 0) << "the result is the second question's";
    EXPECT_TRUE(dns_.IsOverTCP());
    EXPECT_FALSE(dns_.IsTruncated());
    EXPECT_EQ(dns_.CountAll(), refused ? 0 : 1);
    EXPECT_EQ(dns_.ReplyCode(), refused ? -1 : 0);
    EXPECT_EQ(server.Connections(), 1u);
    EXPECT_EQ(dns_.OutBuffer(), Framed(server.Queries().back()));
  }
}

}  // namespace
}  // namespace netro
