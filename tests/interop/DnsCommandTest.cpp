// The command "netro dns" against BIND's name server: its lines are those that dig prints.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "BindZones.h"
#include "Dig.h"
#include "NamedServer.h"
#include "ServerProcess.h"

namespace netro::interop {
namespace {

class DnsCommand : public testing::Test {
 protected:
  void SetUp() override {
    if (!NamedServer::IsInstalled()) GTEST_SKIP() << "bind9 and bind9-dnsutils are not installed";
    const std::string zone = std::string(kZoneHead) + kDecodedTypes + kDumpedTypes;
    server_ = std::make_unique<NamedServer>(
        std::vector<Zone>{{"example", zone, "check-names ignore;"}}, "");
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
  }

  // Of the command with these arguments.
  std::string Output(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {NETRO_COMMAND, "dns"});
    arguments.insert(arguments.end(), {"--server", "127.0.0.1:" + std::to_string(server_->Port())});
    return interop::Run(arguments);
  }

  std::unique_ptr<NamedServer> server_;
};

void ExpectLines(const Records& got, const Records& wanted) {
  EXPECT_FALSE(wanted.empty());
  Records missing, surplus;
  std::ranges::set_difference(wanted, got, std::back_inserter(missing));
  std::ranges::set_difference(got, wanted, std::back_inserter(surplus));
  EXPECT_EQ(surplus, missing);
}

TEST_F(DnsCommand, RecordsOfEveryType) {
  std::vector<Question> questions = QuestionsOf(kDecodedTypes);
  for (const Question& question : QuestionsOf(kDumpedTypes)) questions.push_back(question);
  questions.push_back({"example", 6});
  std::string output;
  std::vector<std::string> words;
  for (const Question& question : questions) {
    const std::string type = "TYPE" + std::to_string(question.type);
    output += Output({question.name, type});
    words.insert(words.end(), {question.name, type});
  }
  ExpectLines(RecordLines(output), DigLines(server_->Port(), words));
}

TEST_F(DnsCommand, WholeZone) {
  ExpectLines(RecordLines(Output({"example", "--zone"})),
              DigLines(server_->Port(), {"example", "AXFR"}));
}

// Every byte in labels and strings, and what looks like something else: one label like two, one
// string like several, the zone's own name, directives and comments.
std::string HostileRecords() {
  std::string text = R"zone(
a\.b A 192.0.2.1
a.b A 192.0.2.2
\@ TXT "the zone" ; a comment
\$TTL TXT "$TTL 7" "$INCLUDE /etc/passwd"
\;x TXT "; no comment" "( no group )"
two\032words.\"q\".x\\.y\. CNAME a\.b.c\032d
r RP john\.doe\.jun a\.b
r MINFO a\032b c\.d
m MX 10 a\.b
m SRV 1 2 3 a\.b\040c
m AFSDB 1 a\.b
one TXT "\"a\" \"b\""
one ISDN "\"1\" \"2\""
several TXT "a" "b"
empty TXT ""
lines TXT "a\010b\013\010c A 192.0.2.3"
)zone";
  for (int byte = 0; byte < 256; ++byte) {
    const std::string number = std::to_string(1000 + byte).substr(1);
    text += "l" + std::to_string(byte) + "x\\" + number + "y.z TXT \"x\\" + number + "y\"\n";
  }
  return text;
}

// A zone file as BIND's tools write it: full names, sorted, each record in one way.
std::string Canonical(const std::string& zone, const std::string& file) {
  const std::string sorted = file + ".canonical";
  Run({FindProgram("named-compilezone"), "-q", "-D", "-i", "none", "-k", "ignore", "-n", "ignore",
       "-s", "full", "-o", sorted, zone, file});
  return ReadFile(sorted);
}

TEST(ZoneCommand, OutputIsTheSameZone) {
  if (!NamedServer::IsInstalled() || FindProgram("named-compilezone").empty()) {
    GTEST_SKIP() << "bind9, bind9-utils and bind9-dnsutils are not installed";
  }
  const std::string head =
      "$TTL 3600\n@ SOA ns\\.1 john\\.doe 4000000000 7200 3600 1209600 300\n@ NS ns\nns A "
      "127.0.0.1\n";
  const TemporaryFolder folder;
  for (const std::string& records : {HostileRecords(), kDecodedTypes + std::string(kDumpedTypes)}) {
    const NamedServer server({{"example", head + records, "check-names ignore;"}}, "");
    ASSERT_TRUE(server.IsUp()) << server.Output();
    WriteFile(folder / "served", head + records);
    WriteFile(folder / "printed",
              interop::Run({NETRO_COMMAND, "dns", "--zone", "example", "--server",
                            "127.0.0.1:" + std::to_string(server.Port())}));
    const std::string wanted = Canonical("example", folder / "served");
    EXPECT_GT(wanted.size(), 1000u);
    EXPECT_EQ(Canonical("example", folder / "printed"), wanted);
  }
}

}  // namespace
}  // namespace netro::interop
