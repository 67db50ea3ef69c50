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

// What the records' properties cannot tell apart: a dot in a label from one between two labels, and
// one string that holds quoted strings from several strings.
bool IsAmbiguous(const std::string& line) {
  return line.starts_with("t17-dotted.") || line.starts_with("t16-quoted.");
}

void ExpectLines(Records got, Records wanted) {
  std::erase_if(got, IsAmbiguous);
  std::erase_if(wanted, IsAmbiguous);
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

}  // namespace
}  // namespace netro::interop
