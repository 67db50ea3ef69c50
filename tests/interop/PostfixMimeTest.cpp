// The mail classes against postfix: what arrives, and for whom.

#include <netro/SendMailCls.h>

#include <algorithm>

#include "NamedServer.h"
#include "Postfix.h"
#include "tests/SmtpTestKit.h"

namespace netro::interop {
namespace {

using namespace std::string_literals;
using testkit::SmtpServer;
using Tries = std::vector<std::pair<std::string, std::int32_t>>;  // address and result

class PostfixMail : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (Postfix::Missing().empty()) server_ = std::make_unique<Postfix>();
  }
  static void TearDownTestSuite() { server_.reset(); }

  void SetUp() override {
    if (!server_) GTEST_SKIP() << Postfix::Missing();
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
    for (SMTPSettings* client : std::initializer_list<SMTPSettings*>{&mail_, &smtp_}) {
      client->SenderHostName("me.test");
      client->ReceiverHostName("127.0.0.1");
      client->Port(server_->Port());
      client->ProtocolLevel(pl_standard);
    }
  }

  void Compose(const std::string& to, const std::string& cc = "", const std::string& bcc = "") {
    EXPECT_TRUE(mail_.NewTextMsg("Grüße", "Jörg <jane@me.test>", to, "Text", cc, bcc));
  }
  void ExpectOutcome(std::size_t index, std::int32_t step, std::int32_t result,
                     std::int32_t resultClass) {
    ASSERT_LT(index, mail_.Outcomes().size());
    const RecipientOutcome& outcome = mail_.Outcomes()[index];
    EXPECT_EQ(outcome.StepID, step) << outcome.Protocol;
    EXPECT_EQ(outcome.Result, result) << outcome.Address;
    EXPECT_EQ(outcome.ResultClass, resultClass) << outcome.Address;
  }
  static inline std::unique_ptr<Postfix> server_;
  SendMailCls mail_;
  SMTPCls smtp_;
};

TEST_F(PostfixMail, EachRecipientHasAnOutcome) {
  Compose("a@xy.test, busy@xy.test", "gone@xy.test, c@xy.test",
          "\"Secret\" <bcc@xy.test>, z@zz.test");
  EXPECT_FALSE(mail_.SendMail());
  ASSERT_EQ(mail_.Outcomes().size(), 6u);
  ExpectOutcome(0, SMTP_STEP_DONE, 0, 0);
  ExpectOutcome(1, SMTP_STEP_RCPTTO, 451, 3015);
  ExpectOutcome(2, SMTP_STEP_RCPTTO, 550, 3011);
  ExpectOutcome(3, SMTP_STEP_DONE, 0, 0);
  ExpectOutcome(4, SMTP_STEP_DONE, 0, 0);
  ExpectOutcome(5, SMTP_STEP_RCPTTO, 454, 3015);
  EXPECT_EQ(mail_.Outcomes()[1].ResultMessage,
            "451 4.3.0 <busy@xy.test>: Recipient address rejected: Try again later\r\n");

  const std::string text = mail_.MimeBuffer();
  EXPECT_EQ(text.find("bcc@"), text.npos);
  EXPECT_EQ(text.find("Secret"), text.npos);
  std::vector<std::string> recipients;
  for (const ArrivedMail& mail : server_->TakeMail()) {
    EXPECT_EQ(mail.text, text);
    recipients.push_back(mail.recipient);
  }
  std::ranges::sort(recipients);
  EXPECT_EQ(recipients, (std::vector{"a@xy.test"s, "bcc@xy.test"s, "c@xy.test"s}));
}

TEST_F(PostfixMail, RawDataArrivesAsItIs) {
  std::string manyDots;
  for (int i = 0; i < 50'000; ++i) manyDots += ".\r\n";
  const std::string longLine(5000, 'x'), dottedLine = longLine + "\r\n." + longLine.substr(1);
  const struct {
    std::string sent, arrived;
  } kBodies[] = {
      {"", ""},
      {".\r\n.\r\n.\r\n.", ".\r\n.\r\n.\r\n."},
      {"a\r\n.\r\n.\r\nb.\r\n.\r\n", "a\r\n.\r\n.\r\nb.\r\n.\r\n"},
      {"\r\n.\r\nQUIT\r\n", "\r\n.\r\nQUIT\r\n"},
      {manyDots, manyDots},
      {longLine + "\r\n" + longLine, longLine + "\r\n" + longLine},
      {"Gr\xfc\xdf"
       "e \xe2\x82\xac\x80\xff",
       "Gr\xfc\xdf"
       "e \xe2\x82\xac\x80\xff"},
      // Only lone dots are doubled: the server takes these two for doubled ones.
      {"..\r\n" + dottedLine, ".\r\n" + longLine + "\r\n" + longLine.substr(1)},
  };
  const std::string head = "Subject: s\r\n\r\n";
  for (const auto& body : kBodies) {
    SCOPED_TRACE(body.sent.substr(0, 40));
    EXPECT_TRUE(smtp_.SMTP("jane@me.test", "a@xy.test", head + body.sent)) << smtp_.ResultMessage();
    const std::vector<ArrivedMail> arrived = server_->TakeMail();
    ASSERT_EQ(arrived.size(), 1u);
    EXPECT_TRUE(arrived[0].text == head + body.arrived + "\r\n") << arrived[0].text.substr(0, 200);
  }
}

// Domains and their exchangers in bind9, postfix among them: however the others fail, each mail
// arrives once, byte for byte.
constexpr char kHead[] = "$TTL 60\n@ SOA ns hostmaster 1 1 1 1 1\n@ NS ns\nns A 127.0.0.1\n";
// Nobody listens at 127.0.0.2; the addresses behind it are those of the scripted servers.
constexpr char kZone[] = R"zone(
mx       A    127.0.0.1
silent   A    127.0.0.2
refuses  A    127.0.0.3
isbusy   A    127.0.0.4
six      AAAA ::1
both     A    127.0.0.2
both     AAAA ::1
worst    MX   1  silent
worst    MX   2  isbusy
worst    MX   3  refuses
worst    MX   4  six
onlysix  MX   5  six
next     MX   5  both
bare     A    127.0.0.1
null     MX   0  .
)zone";

// At the port of postfix; says this and goes.
std::unique_ptr<SmtpServer> Scripted(const Postfix& postfix, const std::string& address,
                                     const std::string& greeting) {
  const SmtpServer::Answer answer(greeting, SmtpServer::After::Close);
  return std::make_unique<SmtpServer>([=](const std::string&) { return answer; }, postfix.Port(),
                                      address);
}

TEST(PostfixExchangers, TheNextOneTakesWhatTheFirstDoesNot) {
  if (!Postfix::Missing().empty()) GTEST_SKIP() << Postfix::Missing();
  if (!NamedServer::IsInstalled()) GTEST_SKIP() << "bind9 and bind9-dnsutils are not installed";
  Postfix server([](const std::string&, const std::string&) {
    return Postfix::Extra{"virtual_mailbox_domains = static:all\n", {}};
  });
  ASSERT_TRUE(server.IsUp()) << server.Output();
  const std::string head(kHead), other = "@ MX 20 mx.xy.test.\n@ MX 5 refuses.xy.test.\n";
  const NamedServer names({{"xy.test", head + kZone, ""}, {"zz.test", head + other, ""}}, "");
  ASSERT_TRUE(names.IsUp()) << names.Output();
  SendMailCls mail;
  mail.SenderHostName("me.test");
  mail.Port(server.Port());
  mail.DNSURL("127.0.0.1:" + std::to_string(names.Port()));
  const auto refusing = Scripted(server, "127.0.0.3", "554 no mail here\r\n");
  const auto busy = Scripted(server, "127.0.0.4", "421 too busy\r\n");
  const struct {
    std::string domain;
    Tries tries;
  } cases[] = {
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
  EXPECT_TRUE(
      mail.NewTextMsg("Grüße", "jane@me.test", to + "a@null.xy.test", "Text\r\n.\r\n..\r\nEnde"));
  EXPECT_FALSE(mail.SendMail());
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    Tries tries;
    for (const DeliveryTry& one : mail.Outcomes().at(i).Tries)
      tries.emplace_back(one.Address, one.Result);
    EXPECT_EQ(tries, cases[i].tries) << cases[i].domain;
    EXPECT_EQ(mail.Outcomes()[i].ResultClass, 0) << cases[i].domain;
  }
  // RFC 7505: nobody is to be tried, and never will be.
  const RecipientOutcome& null = mail.Outcomes().back();
  EXPECT_TRUE(null.Tries.empty());
  EXPECT_EQ(null.ResultClass, 3010) << null.ResultMessage;
  EXPECT_NE(null.ResultMessage.find("RFC 7505"), std::string::npos) << null.ResultMessage;

  std::vector<std::string> arrived;
  for (const ArrivedMail& one : server.TakeMail()) {
    EXPECT_EQ(one.text, mail.MimeBuffer());
    arrived.push_back(one.recipient);
  }
  std::ranges::sort(arrived);
  std::ranges::sort(expected);
  EXPECT_EQ(arrived, expected);
}

// Every message of tests/mime/mime_test.py is read where it arrived.
TEST(PostfixMime, EveryPartArrivesAsItWasComposed) {
  if (!Postfix::Missing().empty()) GTEST_SKIP() << Postfix::Missing();
  const std::string python = FindProgram("python3");
  if (python.empty()) GTEST_SKIP() << "python3 is not installed";
  Postfix server;
  ASSERT_TRUE(server.IsUp()) << server.Output();
  interop::Run({python, "-B", NETRO_MIME_TEST, NETRO_COMPOSE, "--server",
                std::to_string(server.Port()), server.Mailbox()});
}

}  // namespace
}  // namespace netro::interop
