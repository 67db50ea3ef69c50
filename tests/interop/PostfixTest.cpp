// The mail classes against postfix: what arrives, for whom, and what never does; also through
// the SOCKS proxy dante.

#include <gtest/gtest.h>
#include <netro/SMTPCls.h>
#include <netro/SendMailCls.h>

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "DanteServer.h"
#include "Postfix.h"
#include "tests/SmtpTestKit.h"

namespace netro::interop {
namespace {

using namespace std::string_literals;

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
    smtp_.Events(&sink_);
  }

  void StartProxy(DanteServer::Users users) {
    if (!DanteServer::IsInstalled()) GTEST_SKIP() << "dante-server is not installed";
    proxy_ = std::make_unique<DanteServer>(users);
    ASSERT_TRUE(proxy_->IsUp()) << proxy_->Output();
    mail_.ProxyURL("127.0.0.1");
    mail_.ProxyPort(proxy_->Port());
    mail_.ProxyUser("netro");
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
  void ExpectDelivery() {
    EXPECT_TRUE(mail_.SendMail()) << mail_.ResultMessage();
    const std::vector<ArrivedMail> arrived = server_->TakeMail();
    ASSERT_EQ(arrived.size(), mail_.Outcomes().size());
    for (const ArrivedMail& mail : arrived) EXPECT_EQ(mail.text, mail_.MimeBuffer());
  }

  static inline std::unique_ptr<Postfix> server_;
  std::unique_ptr<DanteServer> proxy_;
  SendMailCls mail_;
  SMTPCls smtp_;
  SmtpSink sink_;
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
      {"\r\n", "\r\n"},
      {".", "."},
      {".\r\n", ".\r\n"},
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

// Each run is cancelled one event later than the one before, until one gets through.
TEST_F(PostfixMail, NothingArrivesByHalves) {
  const std::string data = "Subject: s\r\n\r\n" + std::string(200'000, 'x');
  bool cancelled = true;
  for (std::size_t at = 1; cancelled; ++at) {
    SCOPED_TRACE(at);
    std::size_t count = 0;
    cancelled = false;
    const auto cancel = [&] {
      if (++count != at) return;
      smtp_.StopWaiting();
      cancelled = true;
    };
    sink_ = SmtpSink();
    sink_.onLine = [&](const std::string&) { cancel(); };
    sink_.onData = cancel;
    smtp_.SMTP("jane@me.test", "a@xy.test", data);
    const std::vector<ArrivedMail> arrived = server_->TakeMail();
    for (const ArrivedMail& mail : arrived) EXPECT_TRUE(mail.text == data + "\r\n");
    const bool accepted = smtp_.StepID() == SMTP_STEP_QUIT || smtp_.StepID() == SMTP_STEP_DONE;
    EXPECT_GE(arrived.size(), accepted ? 1u : 0u);
    EXPECT_LE(arrived.size(), sink_.progress.size() > 1 ? 1u : 0u);
  }
  EXPECT_EQ(smtp_.StepID(), SMTP_STEP_DONE);
  EXPECT_EQ(sink_.progress.size(), 49u);
}

TEST_F(PostfixMail, ThroughDante) {
  StartProxy(DanteServer::kAll);
  if (IsSkipped() || HasFatalFailure()) return;
  const struct {
    SMTPProxyTypeEnum type;
    bool remoteNames;
    std::string server;
  } kCases[] = {{SMTPProxySocks4, false, "127.0.0.1"},
                {SMTPProxySocks5NoAuth, false, "localhost"},
                {SMTPProxySocks5NoAuth, true, "localhost"},
                {SMTPProxySocks5Auth, true, "127.0.0.1"}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.type << " " << c.remoteNames);
    mail_.ProxyType(c.type);
    mail_.ProxyUseRemoteDNS(c.remoteNames);
    mail_.ReceiverHostName(c.server);
    Compose("a@xy.test, b@xy.test");
    ExpectDelivery();
  }
  mail_.Port(peers::RefusingPort().Port());
  EXPECT_FALSE(mail_.SendMail());
  ExpectOutcome(0, SMTP_STEP_SOCKS, 9001, 3017);
}

}  // namespace
}  // namespace netro::interop
