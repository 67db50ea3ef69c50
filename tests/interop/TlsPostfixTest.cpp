// Mail as it is handed in at a provider: TLS, logins of every kind, greylisting, addresses and
// texts beyond ASCII, against postfix and dovecot.

#include <gtest/gtest.h>
#include <netro/MailSpool.h>
#include <netro/MessageLoop.h>
#include <netro/SendMailCls.h>
#include <netro/WatchpostCls.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "TlsPostfix.h"
#include "platform/Clock.h"
#include "tests/TemporaryFolder.h"
#include "tests/TlsTestKit.h"

namespace netro::interop {
namespace {

constexpr std::int32_t kTemporary = 3015;
constexpr std::int32_t kFatal = 3011;

class TlsPostfixMail : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (TlsPostfix::Missing().empty()) server_ = std::make_unique<TlsPostfix>();
  }
  static void TearDownTestSuite() { server_.reset(); }

  void SetUp() override {
    if (!server_) GTEST_SKIP() << TlsPostfix::Missing();
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
    mail_.Port(server_->Port());
    mail_.SenderHostName("me.test");
    mail_.Tls(Trusting());
    mail_.ProtocolLevel(pl_WithCompleteData);
  }

  void Enter(Door door, SMTPSecurityEnum security) {
    mail_.ReceiverHostName(TlsPostfix::Address(door));
    mail_.Security(security);
  }
  void LogIn(const std::string& password = TlsPostfix::kPassword) {
    mail_.User(TlsPostfix::kUser);
    mail_.Password(password);
  }
  void Compose(const std::string& to) {
    EXPECT_TRUE(mail_.NewTextMsg("Grüße", "jane@me.test", to, "Text\r\n.\r\n..\r\nEnde"));
  }
  /// Sends, and finds the message with each of its recipients as it was composed.
  void ExpectDelivery(std::size_t recipients = 1) {
    EXPECT_TRUE(mail_.SendMail()) << mail_.ResultMessage();
    const std::vector<ArrivedMail> arrived = server_->TakeMail();
    ASSERT_EQ(arrived.size(), recipients);
    for (const ArrivedMail& mail : arrived) EXPECT_EQ(mail.text, mail_.MimeBuffer());
  }
  const RecipientOutcome& Outcome(std::size_t at = 0) const { return mail_.Outcomes().at(at); }

  static inline std::unique_ptr<TlsPostfix> server_;
  SendMailCls mail_;
};

TEST_F(TlsPostfixMail, EveryLoginLetsInAndShowsNoSecret) {
  const struct {
    Door door;
    SMTPSecurityEnum security;
    bool token;
    const char* mechanism;
  } cases[] = {
      {Door::FromFirstByte, smtpTlsFromFirstByte, false, "AUTH SCRAM-SHA-256"},
      {Door::FromFirstByte, smtpTlsFromFirstByte, true, "AUTH XOAUTH2"},
      {Door::Submission, smtpTlsRequired, false, "AUTH SCRAM-SHA-256"},
      {Door::Submission, smtpTlsWhenOffered, true, "AUTH XOAUTH2"},
      {Door::ClearLogin, smtpPlain, false, "AUTH SCRAM-SHA-256"},
      {Door::OnlyPlain, smtpTlsFromFirstByte, false, "AUTH PLAIN"},
      {Door::OnlyLogin, smtpTlsFromFirstByte, false, "AUTH LOGIN"},
      {Door::OnlyCramMd5, smtpTlsFromFirstByte, false, "AUTH CRAM-MD5"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(TlsPostfix::Address(c.door) + ' ' + c.mechanism);
    Enter(c.door, c.security);
    for (const bool good : {true, false}) {
      LogIn(good ? TlsPostfix::kPassword : "wr0ng");
      const std::string token = good ? TlsPostfix::AccessToken() : "wr0ng";
      mail_.AccessToken(c.token ? token : "");
      Compose("a@xy.test");
      if (good) {
        ExpectDelivery();
      } else {
        EXPECT_FALSE(mail_.SendMail());
        EXPECT_EQ(Outcome().StepID, SMTP_STEP_AUTH) << Outcome().Protocol;
        EXPECT_EQ(Outcome().Result, 535) << Outcome().ResultMessage;
        EXPECT_EQ(Outcome().EnhancedStatus, "5.7.8");
        EXPECT_EQ(Outcome().ResultClass, kFatal);
      }
      const std::string& shown = Outcome().Protocol;
      EXPECT_NE(shown.find(c.mechanism), shown.npos) << shown;
      EXPECT_EQ(shown.find("s3cret"), shown.npos);
      EXPECT_EQ(shown.find("wr0ng"), shown.npos);
      EXPECT_EQ(shown.find("am9l"), shown.npos) << "the name and more in Base64: " << shown;
      EXPECT_EQ(shown.find(token), shown.npos);
    }
  }
}

TEST_F(TlsPostfixMail, WhatIsRequiredIsNeverLeftOut) {
  const struct {
    Door door;
    SMTPSecurityEnum security;
    std::int32_t step;
    std::int32_t result;
  } cases[] = {
      {Door::ClearLogin, smtpTlsRequired, SMTP_STEP_STARTTLS, 10043},
      {Door::Expired, smtpTlsRequired, SMTP_STEP_STARTTLS, tlsExpired},
      {Door::Submission, smtpPlain, SMTP_STEP_MAILFROM, 530},
      {Door::Submission, smtpTlsRequired, SMTP_STEP_RCPTTO, 554},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(TlsPostfix::Address(c.door));
    Enter(c.door, c.security);
    Compose("a@xy.test");
    EXPECT_FALSE(mail_.SendMail());
    EXPECT_EQ(Outcome().StepID, c.step) << Outcome().Protocol;
    EXPECT_EQ(Outcome().Result, c.result) << Outcome().ResultMessage;
  }
  EXPECT_TRUE(server_->TakeMail().empty());
}

TEST_F(TlsPostfixMail, BetweenServersClearIsBetterThanNotAtAll) {
  Enter(Door::Exchanger, smtpTlsWhenOffered);
  Compose("a@xy.test");
  ExpectDelivery();
  EXPECT_TRUE(Outcome().Tries.back().Protected);
  Enter(Door::Expired, smtpTlsWhenOffered);
  Compose("a@xy.test");
  ExpectDelivery();
  EXPECT_FALSE(Outcome().Tries.back().Protected);
  // But a password does not go there.
  LogIn();
  Compose("a@xy.test");
  EXPECT_FALSE(mail_.SendMail());
  EXPECT_EQ(Outcome().Result, tlsExpired) << Outcome().ResultMessage;
}

TEST_F(TlsPostfixMail, ManyMessagesInOneKeptSession) {
  Enter(Door::Submission, smtpTlsRequired);
  LogIn();
  mail_.KeepSession(true);
  for (int i = 0; i < 20; ++i) {
    mail_.Chunking(i % 2 == 1);
    Compose("a@xy.test");
    EXPECT_TRUE(mail_.SendMail()) << mail_.ResultMessage();
  }
  mail_.EndSession();
  EXPECT_EQ(server_->TakeMail().size(), 20u);
  const std::string output = server_->Output();
  const auto end = output.rfind(" disconnect from ");
  ASSERT_NE(end, output.npos);
  EXPECT_NE(output.find("quit=1", end), output.npos) << output.substr(end);
  EXPECT_NE(output.find("data=10 bdat=10", end), output.npos) << output.substr(end);
}

TEST_F(TlsPostfixMail, GreylistingIsForTheNextTry) {
  Enter(Door::Greylisting, smtpPlain);
  Compose("later@xy.test");
  EXPECT_FALSE(mail_.SendMail());
  EXPECT_EQ(Outcome().ResultClass, kTemporary) << Outcome().ResultMessage;
  EXPECT_EQ(Outcome().EnhancedStatus, "4.2.0");
  ExpectDelivery();
}

TEST_F(TlsPostfixMail, AWatchersReportComesThroughGreylisting) {
  const TemporaryFolder folder;
  WriteFile(folder / "watch.ini",
            "[HostNames]\ngone=127.0.0.1|tcp:1\n[Settings]\nDownCycle=1\nGroupSeconds=0\n"
            "Sender=watch@me.test\nRecipients=watched@xy.test\nSpoolFolder=spool\nStateFile=state\n"
            "MailServer=" +
                TlsPostfix::Address(Door::Greylisting) + ":" + std::to_string(server_->Port()) +
                "\n[DownActions]\n1=mail\n");
  const auto until = [](const auto& done) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done() && std::chrono::steady_clock::now() < limit) {
      MessageLoop::ForThisThread().Sleep(std::chrono::milliseconds(5));
    }
    return done();
  };
  auto post = std::make_unique<WatchpostCls>();
  post->SettingsName(folder / "watch.ini");
  ASSERT_TRUE(post->StartObservation()) << post->LastErrMsg();
  EXPECT_TRUE(until([&] { return post->LastErrMsg().find("Greylisted") != std::string::npos; }));
  EXPECT_TRUE(until([&] { return post->ReportsUntried() == 0 && post->MailsWaiting() == 1; }));
  EXPECT_TRUE(server_->TakeMail().empty());
  post = std::make_unique<WatchpostCls>();  // as after a restart
  AdvanceClockForTests(std::chrono::seconds(61));
  post->SettingsName(folder / "watch.ini");
  ASSERT_TRUE(post->StartObservation()) << post->LastErrMsg();
  EXPECT_TRUE(until([&] { return post->MailsWaiting() == 0; }));
  const auto arrived = server_->TakeMail();
  ASSERT_EQ(arrived.size(), 1u);
  EXPECT_NE(arrived[0].text.find("HostDown Info for gone"), std::string::npos) << arrived[0].text;
}

TEST_F(TlsPostfixMail, ASpoolComesBackToWhoGreylists) {
  const TemporaryFolder folder;
  MailSpool spool;
  spool.Folder(folder / "spool");
  spool.Mail().ReceiverHostName(TlsPostfix::Address(Door::Greylisting));
  spool.Mail().Port(server_->Port());
  Compose("spooled@xy.test, other@xy.test");
  ASSERT_TRUE(mail_.SpoolMsg(spool.Folder())) << mail_.ResultMessage();
  EXPECT_TRUE(spool.DeliverDue()) << spool.ResultMessage();
  EXPECT_TRUE(server_->TakeMail().empty());
  const auto waiting = spool.List();
  ASSERT_EQ(waiting.size(), 1u);
  for (const SpooledRecipient& recipient : waiting[0].Recipients) {
    EXPECT_EQ(recipient.State, SpoolPending);
    EXPECT_EQ(recipient.Result, 450) << recipient.Answer;
  }
  EXPECT_TRUE(spool.DeliverDue()) << "nothing is due";
  EXPECT_TRUE(server_->TakeMail().empty());
  EXPECT_TRUE(spool.DeliverDue(true)) << spool.ResultMessage();
  const auto arrived = server_->TakeMail();
  EXPECT_EQ(arrived.size(), 2u);
  for (const ArrivedMail& mail : arrived) EXPECT_EQ(mail.text, mail_.MimeBuffer());
  EXPECT_TRUE(spool.List().empty());
}

TEST_F(TlsPostfixMail, WhatIsNotAsciiArrivesAsItIs) {
  Enter(Door::Exchanger, smtpTlsRequired);
  const std::string body =
      "From: jane@me.test\r\nSubject: Grüße\r\n\r\nSchöne Grüße, \xE2\x82\xAC\r\n";
  EXPECT_TRUE(mail_.NewMsgFromMimeBuffer(body, "jane@me.test", "grüße@xy.test"));
  EXPECT_TRUE(mail_.SendMail()) << mail_.ResultMessage();
  const auto arrived = server_->TakeMail();
  ASSERT_EQ(arrived.size(), 1u);
  EXPECT_EQ(arrived[0].text, body);
  EXPECT_NE(Outcome().Protocol.find("SMTPUTF8"), std::string::npos) << Outcome().Protocol;
  EXPECT_NE(Outcome().Protocol.find("BODY=8BITMIME"), std::string::npos);
}

}  // namespace
}  // namespace netro::interop
