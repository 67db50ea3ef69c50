// The DNS client against BIND's name server: every record type that its zones may hold, all
// sections, refusals and truncation, compared with what dig shows.

#include <gtest/gtest.h>
#include <netro/QueryDNSCLS.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BindZones.h"
#include "Dig.h"
#include "NamedServer.h"

namespace netro::interop {
namespace {

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
    const std::string example =
        std::string(kZoneHead) + kDecodedTypes + kDumpedTypes + kOtherNames + LargeSets();
    server_ =
        std::make_unique<NamedServer>(std::vector<Zone>{{"example", example, "check-names ignore;"},
                                                        {"1.10.in-addr.arpa", kReverseZone, ""},
                                                        {"hosts", HostZone(2000), ""}},
                                      "");
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
  void ExpectReply(const DigReply& wanted, std::size_t sections = 3) {
    const Sections got = SectionsOf(dns_);
    for (std::size_t i = 0; i < sections; ++i)
      EXPECT_EQ(got[i], wanted.sections[i]) << "section " << i;
    EXPECT_EQ(dns_.IsAuthoritativeAnswer(), wanted.HasFlag("aa"));
    EXPECT_EQ(dns_.IsRecursionAvailable(), wanted.HasFlag("ra"));
  }

  void ExpectFound(const Question& question, bool udp, const DigReply& wanted,
                   std::size_t sections) {
    SCOPED_TRACE(question.name + (udp ? " over UDP" : " over TCP"));
    EXPECT_EQ(Ask(question.name, question.type, udp), 0) << dns_.LastErrMsg();
    EXPECT_FALSE(dns_.IsTruncated());
    EXPECT_FALSE(wanted.sections[0].empty());
    ExpectReply(wanted, sections);
  }

  static std::unique_ptr<NamedServer> server_;
  QueryDNSCLS dns_;
};
std::unique_ptr<NamedServer> Bind::server_;

TEST_F(Bind, RecordsOfEveryType) {
  std::vector<Question> questions = QuestionsOf(kDecodedTypes);
  for (const Question& question : QuestionsOf(kDumpedTypes)) questions.push_back(question);
  questions.insert(questions.end(), {{"example", TYPE_SOA}, {"example", TYPE_NS}});
  const auto wanted = DigAll(server_->Port(), questions);
  ASSERT_EQ(wanted.size(), questions.size());
  for (std::size_t i = 0; i < questions.size(); ++i)
    for (const bool udp : {true, false}) ExpectFound(questions[i], udp, wanted[i], 3);
}

struct Outcome {
  const char* name;
  std::int32_t type;
  std::int16_t overUdp;
  std::int16_t overTcp;
  const char* status;
};

constexpr Outcome kOutcomes[] = {
    {"example", TYPE_MX, 0, 0, "NOERROR"},
    {"example.", TYPE_MX, 0, 0, "NOERROR"},
    {"_sip._tcp.example", TYPE_SRV, 0, 0, "NOERROR"},
    {"www.example", TYPE_ALL, 0, 0, "NOERROR"},
    {"alias.example", TYPE_A, 0, 0, "NOERROR"},
    {"twice.example", TYPE_AAAA, 0, 0, "NOERROR"},
    {"alias.example", TYPE_CNAME, 0, 0, "NOERROR"},
    {"outside.example", TYPE_A, 0, 0, "NOERROR"},
    {"any.thing.wild.example", TYPE_A, 0, 0, "NOERROR"},
    {"012345678901234567890123456789012345678901234567890123456789012.long.example", TYPE_A, 0, 0,
     "NOERROR"},
    {"host.sub.example", TYPE_A, 0, 0, "NOERROR"},  // a referral
    {"www.example", TYPE_MX, 0, 0, "NOERROR"},      // no data
    {"b.empty.example", TYPE_A, 0, 0, "NOERROR"},   // a name without records
    {"alias.example", TYPE_MX, 0, 0, "NOERROR"},    // an alias for no data
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

TEST_F(Bind, ReverseZoneByAddressAndByName) {
  const auto wanted = Dig(server_->Port(), {"-x", "10.1.2.3", "-x", "10.1.2.4", "-x",
                                            "10.1.255.255", "-x", "10.1.2.99"});
  const char* addresses[] = {"10.1.2.3", "10.1.2.4", "10.1.255.255", "10.1.2.99"};
  const char* names[] = {"3.2.1.10.in-addr.arpa", "4.2.1.10.in-addr.arpa.",
                         "255.255.1.10.IN-ADDR.arpa", "99.2.1.10.in-addr.arpa"};
  ASSERT_EQ(wanted.size(), std::size(addresses));
  for (std::size_t i = 0; i < std::size(addresses); ++i)
    for (const bool udp : {true, false}) {
      const std::int16_t result = i < 3 ? 0 : udp ? 59 : 3;
      SCOPED_TRACE(addresses[i]);
      EXPECT_EQ(Ask(addresses[i], TYPE_PTR, udp), result);
      ExpectReply(wanted[i]);
      EXPECT_EQ(Ask(names[i], TYPE_PTR, udp), result);
      EXPECT_EQ(dns_.CountAll(), static_cast<std::int32_t>(wanted[i].sections[0].size() +
                                                           wanted[i].sections[1].size() +
                                                           wanted[i].sections[2].size()));
    }
  EXPECT_EQ(Ask("10.1.2.3", TYPE_PTR), 0);
  EXPECT_EQ(dns_.EntryAN(1)->Data(), "www.example");
}

TEST_F(Bind, AnotherClass) {
  dns_.QueryClass(3);
  for (const bool udp : {true, false}) {
    EXPECT_EQ(Ask("version.bind", TYPE_TXT, udp), 0);
    ASSERT_EQ(dns_.CountAN(), 1);
    EXPECT_EQ(dns_.EntryAN(1)->Data(), "netro test");
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

}  // namespace
}  // namespace netro::interop
