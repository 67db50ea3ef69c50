// Domains and their exchangers in bind9, postfix among them: however the others fail, each mail
// arrives once, byte for byte.

#include <gtest/gtest.h>
#include <netro/SendMailCls.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NamedServer.h"
#include "Postfix.h"
#include "tests/peers/SmtpServer.h"

namespace netro::interop {
namespace {

using peers::SmtpServer;
using Tries = std::vector<std::pair<std::string, std::int32_t>>;  // address and result

constexpr char kHead[] = "$TTL 60\n@ SOA ns hostmaster 1 1 1 1 1\n@ NS ns\nns A 127.0.0.1\n";
// Nobody listens at 127.0.0.2; the addresses behind it are those of the scripted servers.
constexpr char kZone[] = R"zone(
mx       A    127.0.0.1
silent   A    127.0.0.2
refuses  A    127.0.0.3
isbusy   A    127.0.0.4
other    A    127.0.0.5
six      AAAA ::1
both     A    127.0.0.2
both     AAAA ::1
dead     MX   10 mx
dead     MX   5  silent
refusing MX   10 mx
refusing MX   5  refuses
busy     MX   5  isbusy
busy     MX   10 mx
worst    MX   1  silent
worst    MX   2  isbusy
worst    MX   3  refuses
worst    MX   4  six
equal    MX   5  mx
equal    MX   5  other
onlysix  MX   5  six
next     MX   5  both
bare     A    127.0.0.1
null     MX   0  .
)zone";

class PostfixExchangers : public testing::Test {
 protected:
  void SetUp() override {
    if (!Postfix::Missing().empty()) GTEST_SKIP() << Postfix::Missing();
    if (!NamedServer::IsInstalled()) GTEST_SKIP() << "bind9 and bind9-dnsutils are not installed";
    server_ = std::make_unique<Postfix>([](const std::string&, const std::string&) {
      return Postfix::Extra{"virtual_mailbox_domains = static:all\n", {}};
    });
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
    names_ = std::make_unique<NamedServer>(
        std::vector<Zone>{{"xy.test", std::string(kHead) + kZone, ""},
                          {"zz.test", std::string(kHead) + "@ MX 20 mx.xy.test.\n"
                                                           "@ MX 5 refuses.xy.test.\n", ""}},
        "");
    ASSERT_TRUE(names_->IsUp()) << names_->Output();
    mail_.SenderHostName("me.test");
    mail_.Port(server_->Port());
    mail_.DNSURL("127.0.0.1:" + std::to_string(names_->Port()));
  }

  /// At the port of postfix.
  std::unique_ptr<SmtpServer> Scripted(const std::string& address, SmtpServer::Reply reply) {
    return std::make_unique<SmtpServer>(std::move(reply), server_->Port(), address);
  }
  void Compose(const std::string& to) {
    EXPECT_TRUE(mail_.NewTextMsg("Grüße", "jane@me.test", to, "Text\r\n.\r\n..\r\nEnde"));
  }
  Tries TriesOf(std::size_t at) const {
    Tries tries;
    for (const DeliveryTry& one : mail_.Outcomes().at(at).Tries)
      tries.emplace_back(one.Address, one.Result);
    return tries;
  }

  std::unique_ptr<Postfix> server_;
  std::unique_ptr<NamedServer> names_;
  SendMailCls mail_;
};

TEST_F(PostfixExchangers, TheNextOneTakesWhatTheFirstDoesNot) {
  const auto refusing = Scripted("127.0.0.3", [](const std::string&) -> SmtpServer::Answer {
    return {"554 no mail here\r\n", SmtpServer::After::Close};
  });
  const auto busy = Scripted("127.0.0.4", [](const std::string&) -> SmtpServer::Answer {
    return {"421 too busy\r\n", SmtpServer::After::Close};
  });
  const struct {
    std::string domain;
    Tries tries;
  } cases[] = {
      {"dead.xy.test", {{"", 10061}, {"127.0.0.1", 0}}},
      {"refusing.xy.test", {{"127.0.0.3", 554}, {"127.0.0.1", 0}}},
      {"busy.xy.test", {{"127.0.0.4", 421}, {"127.0.0.1", 0}}},
      {"worst.xy.test", {{"", 10061}, {"127.0.0.4", 421}, {"127.0.0.3", 554}, {"::1", 0}}},
      {"onlysix.xy.test", {{"::1", 0}}},
      {"next.xy.test", {{"::1", 0}}},
      {"bare.xy.test", {{"127.0.0.1", 0}}},
      {"zz.test", {{"127.0.0.3", 554}, {"127.0.0.1", 0}}},
  };
  std::string to;
  std::vector<std::string> expected;
  for (const auto& c : cases) {
    expected.push_back("a@" + c.domain);
    to += expected.back() + ", ";
  }
  Compose(to + "a@null.xy.test");
  EXPECT_FALSE(mail_.SendMail());
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(TriesOf(i), cases[i].tries) << cases[i].domain;
    EXPECT_EQ(mail_.Outcomes()[i].ResultClass, 0) << cases[i].domain;
  }
  // RFC 7505: nobody is to be tried, and never will be.
  const RecipientOutcome& null = mail_.Outcomes().back();
  EXPECT_TRUE(null.Tries.empty());
  EXPECT_EQ(null.ResultClass, 3010) << null.ResultMessage;
  EXPECT_NE(null.ResultMessage.find("RFC 7505"), std::string::npos) << null.ResultMessage;

  std::vector<std::string> arrived;
  for (const ArrivedMail& mail : server_->TakeMail()) {
    EXPECT_EQ(mail.text, mail_.MimeBuffer());
    arrived.push_back(mail.recipient);
  }
  std::ranges::sort(arrived);
  std::ranges::sort(expected);
  EXPECT_EQ(arrived, expected);
}

TEST_F(PostfixExchangers, EqualOnesShareTheMail) {
  constexpr std::size_t kMails = 24;  // that one gets none is less likely than a broken machine
  const auto other = Scripted("127.0.0.5", SmtpServer::Politely);
  for (std::size_t i = 0; i < kMails; ++i) {
    Compose("a@equal.xy.test");
    EXPECT_TRUE(mail_.SendMail()) << mail_.ResultMessage();
    EXPECT_EQ(mail_.Outcomes().at(0).Tries.size(), 1u);
  }
  const std::size_t here = server_->TakeMail().size(), there = other->Messages().size();
  EXPECT_EQ(here + there, kMails);
  EXPECT_GT(here, 0u);
  EXPECT_GT(there, 0u);
}

}  // namespace
}  // namespace netro::interop
