// The DNS client against BIND's name server: all sections, refusals, truncation and zone transfers,
// compared with what dig shows. Every record type is asked for by the command.

#include <gtest/gtest.h>
#include <netro/QueryDNSCLS.h>

#include "Dig.h"
#include "NamedServer.h"

namespace netro::interop {
namespace {

constexpr char kZoneHead[] = R"zone($TTL 3600
@ SOA ns hostmaster 4000000000 7200 3600 1209600 300
@ NS ns
ns A 127.0.0.1
)zone";

constexpr char kOtherNames[] = R"zone(
www A 10.1.2.3
www AAAA 2001:db8::1
mail A 10.1.2.4
@ MX 10 mail
@ MX 20 mail.elsewhere.
_sip._tcp SRV 10 20 5060 www
alias CNAME www
twice CNAME alias
outside CNAME www.elsewhere.
*.wild A 10.9.9.9
sub NS ns.sub
ns.sub A 127.0.0.2
a.b.empty A 10.1.2.5
012345678901234567890123456789012345678901234567890123456789012.long A 10.1.2.6
)zone";

constexpr char kReverseZone[] = R"zone($TTL 3600
@ SOA ns.example. john\.doe.example. 1 7200 3600 1209600 300
@ NS ns.example.
3.2 PTR www.example.
4.2 PTR mail.example.
4.2 PTR also.example.
)zone";

std::string LargeSets() {
  std::string text;
  for (const char c : {'a', 'b'})
    text += "large TXT \"" + std::string(200, c) + "\" \"" + std::string(200, c) + "\"\n";
  for (int i = 0; i < 100; ++i) text += "many A 10.2.0." + std::to_string(i) + "\n";
  return text;
}

struct Question {
  std::string name;
  std::int32_t type;
};

std::vector<DigReply> DigAll(int port, const std::vector<Question>& questions,
                             std::vector<std::string> words = {}) {
  for (const Question& question : questions)
    words.insert(words.end(), {question.name, "TYPE" + std::to_string(question.type)});
  return Dig(port, words);
}

class Bind : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!NamedServer::IsInstalled()) return;
    const std::string example = std::string(kZoneHead) + kOtherNames + LargeSets();
    server_ = std::make_unique<NamedServer>(
        std::vector<Zone>{{"example", example, ""}, {"1.10.in-addr.arpa", kReverseZone, ""}}, "");
  }
  static void TearDownTestSuite() { server_.reset(); }

  void SetUp() override {
    if (!server_) GTEST_SKIP() << "bind9 and bind9-dnsutils are not installed";
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
    dns_.DNSServer("127.0.0.1");
    dns_.DNSPort(server_->Port());
  }

  std::int16_t Ask(const std::string& name, std::int32_t type, bool udp = true) {
    dns_.Domain(name);
    dns_.QueryType(static_cast<QueryEnum>(type));
    dns_.UseUDP(udp);
    return dns_.QueryDNS();
  }

  // The last query's reply, except for the TC flag, which dig does not show as it asks again.
  void ExpectReply(const DigReply& wanted) {
    EXPECT_EQ(SectionsOf(dns_), wanted.sections);
    EXPECT_EQ(dns_.IsAuthoritativeAnswer(), wanted.HasFlag("aa"));
    EXPECT_EQ(dns_.IsRecursionAvailable(), wanted.HasFlag("ra"));
  }

  static std::unique_ptr<NamedServer> server_;
  QueryDNSCLS dns_;
};
std::unique_ptr<NamedServer> Bind::server_;

struct Outcome {
  const char* name;
  std::int32_t type;
  std::int16_t overUdp = 0, overTcp = 0;
  const char* status = "NOERROR";
};

constexpr Outcome kOutcomes[] = {
    {"example", TYPE_MX},
    {"example.", TYPE_MX},
    {"_sip._tcp.example", TYPE_SRV},
    {"www.example", TYPE_ALL},
    {"alias.example", TYPE_A},
    {"twice.example", TYPE_AAAA},
    {"outside.example", TYPE_A},
    {"any.thing.wild.example", TYPE_A},
    {"012345678901234567890123456789012345678901234567890123456789012.long.example", TYPE_A},
    {"host.sub.example", TYPE_A},  // a referral
    {"www.example", TYPE_MX},      // no data
    {"b.empty.example", TYPE_A},   // a name without records
    {"alias.example", TYPE_MX},    // an alias for no data
    {"4.2.1.10.IN-ADDR.arpa.", TYPE_PTR},
    {"unknown.example", TYPE_A, 59, 3, "NXDOMAIN"},
    {"www.elsewhere", TYPE_A, 59, 5, "REFUSED"},
    {"example", TYPE_MAILB, 59, 4, "NOTIMP"},
};

TEST_F(Bind, SectionsAndResults) {
  std::vector<Question> questions;
  for (const Outcome& row : kOutcomes) questions.push_back({row.name, row.type});
  const auto wanted = DigAll(server_->Port(), questions);
  ASSERT_EQ(wanted.size(), questions.size());
  for (std::size_t i = 0; i < questions.size(); ++i)
    for (const bool udp : {true, false}) {
      const Outcome& row = kOutcomes[i];
      SCOPED_TRACE(std::string(row.name) + (udp ? " over UDP" : " over TCP"));
      EXPECT_EQ(wanted[i].status, row.status);
      EXPECT_EQ(Ask(row.name, row.type, udp), udp ? row.overUdp : row.overTcp);
      ExpectReply(wanted[i]);
    }
}

TEST_F(Bind, TruncatedRepliesAreFollowedOrDoNotHappen) {
  for (const Question& question : {Question{"large.example", TYPE_TXT}, {"many.example", TYPE_A}}) {
    SCOPED_TRACE(question.name);
    const auto wanted = DigAll(server_->Port(), {question}).at(0);
    dns_.UDPSize(0);
    dns_.FollowTruncation(true);
    dns_.QueryID(-1);
    EXPECT_EQ(Ask(question.name, question.type), 0);
    EXPECT_TRUE(dns_.IsOverTCP());
    EXPECT_EQ(dns_.EDNS(), nullptr);
    ExpectReply(wanted);
    dns_.UDPSize(4096);
    EXPECT_EQ(Ask(question.name, question.type), 0);
    // One of them is larger than what BIND sends in a datagram at most.
    EXPECT_EQ(dns_.IsOverTCP(), question.name == "many.example");
    EXPECT_GT(dns_.InBuffer().size(), 512u);
    ASSERT_NE(dns_.EDNS(), nullptr);
    EXPECT_EQ(dns_.EDNS()->UDPSize(), 1232);
    EXPECT_EQ(dns_.EDNS()->Version(), 0);
    EXPECT_FALSE(dns_.EDNS()->DNSSECOK());
    ExpectReply(wanted);
  }
  dns_.DNSSECOK(true);
  EXPECT_EQ(Ask("none.example", TYPE_A), 59);
  EXPECT_EQ(dns_.ReplyCode(), 3);
  ASSERT_NE(dns_.EDNS(), nullptr);
  EXPECT_TRUE(dns_.EDNS()->DNSSECOK());
}

TEST(BindTransfer, ThousandsOfRecordsInEachFormat) {
  if (!NamedServer::IsInstalled()) GTEST_SKIP() << "bind9 and bind9-dnsutils are not installed";
  QueryDNSCLS dns;
  std::string zone = kZoneHead;
  for (int i = 0; i < 5000; ++i) {
    zone += "h" + std::to_string(i) + " A 10.1." + std::to_string(i / 256) + "." +
            std::to_string(i % 256) + "\n";
  }
  for (const std::string format : {"transfer-format many-answers;", "transfer-format one-answer;",
                                   "transfer-message-size 512;", "transfer-message-size 65535;"}) {
    SCOPED_TRACE(format);
    const NamedServer server({{"hosts", zone, ""}}, format);
    ASSERT_TRUE(server.IsUp()) << server.Output();
    const auto wanted = Dig(server.Port(), {"hosts", "AXFR"});
    ASSERT_EQ(wanted.at(0).sections[0].size(), 5004u);
    dns.DNSServer("127.0.0.1");
    dns.DNSPort(server.Port());
    dns.Domain("hosts");
    dns.QueryType(TYPE_AXFR);
    ASSERT_EQ(dns.QueryZone(), 0) << dns.LastErrMsg();
    EXPECT_EQ(dns.EntryAN(1)->DataType(), TYPE_SOA);
    EXPECT_EQ(dns.EntryAN(dns.CountAN())->DataType(), TYPE_SOA);
    EXPECT_TRUE(SectionsOf(dns) == wanted[0].sections);
    const bool oneAnswer = dns.InBuffer().substr(6, 2) == std::string("\0\1", 2);
    EXPECT_EQ(oneAnswer, format == "transfer-format one-answer;");
  }
}

}  // namespace
}  // namespace netro::interop
