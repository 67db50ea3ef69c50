// Mail sessions that are protected, and against those who are in between.
#include <poll.h>

#include "SendMailKit.h"
#include "TlsTestKit.h"
#include "support/Text.h"

namespace netro {
namespace {

using Lines = std::vector<std::string>;

// A server's side of a session over anything that reads and sends; ends after STARTTLS or `last`
// (true), or with the session.
template <class Wire>
bool Talk(Wire& wire, const std::string& extensions, Lines& commands, const std::string& ready,
          const std::string& last = "") {
  std::string bytes;
  bool message = false;
  for (;;) {
    const std::size_t end = bytes.find("\r\n");
    if (end == bytes.npos) {
      if (!wire.Read(bytes)) return false;
      continue;
    }
    const std::string line = bytes.substr(0, end);
    bytes.erase(0, end + 2);
    if (message && line != ".") continue;
    commands.push_back(line);
    message = line == "DATA";
    std::string reply = SmtpServer::Politely(line).bytes;
    if (line.starts_with("EHLO")) reply = "250-mx.test\r\n" + extensions + "250 HELP\r\n";
    if (line.starts_with("AUTH PLAIN")) reply = "235 ok\r\n";
    if (line == "STARTTLS") reply = ready;
    if (!wire.Send(reply)) return false;
    if (line == last || (line == "STARTTLS" && ready.starts_with("220"))) return true;
  }
}

struct Script {
  std::string offered = "250-STARTTLS\r\n";
  std::string ready = "220 go\r\n";
  bool firstByte = false;
  bool badCertificate = false;
  bool deaf = false;  // once the message is to come
};

struct TlsSmtp : SendMailTest {
  std::unique_ptr<TlsServer> Serve(const Script& script) {
    plain_.clear();
    hidden_.clear();
    TlsRules rules = GoodRules();
    CertificateWish wish;
    wish.selfSigned = script.badCertificate;
    rules.identity = Authority().Issue(wish);
    if (!script.firstByte) {
      rules.before = [this, script](Connection& connection) {
        return connection.Send("220 mx.test\r\n") &&
               Talk(connection, script.offered, plain_, script.ready);
      };
    }
    rules.serve = [this, script](TlsPeer& peer) {
      if (script.firstByte) peer.Send("220 mx.test\r\n");
      deaf_ = Talk(peer, "250-AUTH PLAIN\r\n", hidden_, "", script.deaf ? "DATA" : "");
      pollfd stop{peer.Raw().StopFd(), POLLIN, 0};
      if (deaf_) poll(&stop, 1, -1);
    };
    auto server = std::make_unique<TlsServer>(std::move(rules));
    mail_->ReceiverHostName("localhost");
    mail_->Port(server->Port());
    mail_->Tls(provider_);
    Compose("a@xy.test");
    return server;
  }

  const std::shared_ptr<TlsProvider> provider_ = Trusting();
  std::atomic<bool> deaf_{false};
  Lines plain_, hidden_;  // what the server was told, in clear and protected
};

TEST_F(TlsSmtp, NothingOfTheMessageIsSaidBeforeTheProtection) {
  for (const auto security : {smtpTlsRequired, smtpTlsWhenOffered, smtpTlsFromFirstByte}) {
    SCOPED_TRACE(security);
    Script script;
    script.firstByte = security == smtpTlsFromFirstByte;
    {
      const auto server = Serve(script);
      mail_->Security(security);
      mail_->User("tim");
      mail_->Password("secret");
      EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
      EXPECT_TRUE(mail_->Outcomes()[0].Tries.at(0).Protected);
    }
    EXPECT_EQ(plain_, script.firstByte ? Lines() : (Lines{"EHLO me.test", "STARTTLS"}));
    EXPECT_EQ(Joined(hidden_),  // everything is said anew
              "EHLO me.test\r\nAUTH PLAIN AHRpbQBzZWNyZXQ=\r\nMAIL FROM:<jane@xy.test>\r\n"
              "RCPT TO:<a@xy.test>\r\nDATA\r\n.\r\nQUIT");
  }
}

// What was sent behind the reply to STARTTLS could be taken as if it had been protected.
TEST_F(TlsSmtp, RequiredNeverFallsBack) {
  const std::tuple<Script, std::int32_t, std::int32_t> kCases[] = {
      {{"250-SIZE\r\n"}, SMTP_STEP_STARTTLS, 10043},
      {{"250-STARTTLS\r\n", "454 not now\r\n"}, SMTP_STEP_STARTTLS, 454},
      {{"250-STARTTLS\r\n", "220 go\r\n250 injected\r\n"}, SMTP_STEP_STARTTLS, tlsEarlyBytes},
      {{"250-STARTTLS\r\n", "220 go\r\n", false, true}, SMTP_STEP_STARTTLS, tlsSelfSigned},
  };
  for (const auto& [script, step, result] : kCases) {
    SCOPED_TRACE(script.offered + script.ready);
    {
      const auto server = Serve(script);
      mail_->Security(smtpTlsRequired);
      EXPECT_FALSE(mail_->SendMail());
      ExpectOutcome(0, "a@xy.test", step, result, result == 454 ? 3015 : 3017);
      EXPECT_EQ(mail_->Outcomes()[0].ResultMessage.starts_with("TLS: Early Bytes. "),
                result == tlsEarlyBytes);
    }
    for (const std::string& line : plain_) EXPECT_FALSE(line.starts_with("MAIL")) << line;
    EXPECT_EQ(hidden_, Lines());
  }
}

// Opportunistic, as between exchangers: mail that cannot be protected goes in clear, but never with
// a password.
TEST_F(TlsSmtp, WhenOfferedFallsBackWithoutALogin) {
  for (const bool login : {false, true}) {
    for (const Script& script :
         {Script{"250-SIZE\r\n250-AUTH PLAIN\r\n"},
          Script{"250-STARTTLS\r\n250-AUTH PLAIN\r\n", "454 not now\r\n"},
          Script{"250-STARTTLS\r\n250-AUTH PLAIN\r\n", "220 go\r\n", false, true}}) {
      SCOPED_TRACE(script.offered + script.ready + (login ? " login" : ""));
      {
        const auto server = Serve(script);
        mail_->Security(smtpTlsWhenOffered);
        mail_->User(login ? "tim" : "");
        mail_->Password("secret");
        EXPECT_EQ(mail_->SendMail(), !login) << mail_->ResultMessage();
      }
      for (const std::string& line : plain_) EXPECT_FALSE(line.starts_with("AUTH")) << line;
    }
  }
}

TEST_F(TlsSmtp, TheTotalTimeOutCountsWhileSending) {
  Script script;
  script.deaf = true;
  const auto server = Serve(script);
  mail_->NewTextMsg("Subject", "jane@xy.test", "a@xy.test", std::string(16 << 20, 'x'));
  mail_->Security(smtpTlsRequired);
  mail_->TotalTimeout(milliseconds(20'500));
  const RunningClock clock([this] { return deaf_.load(); });
  const Takes time(milliseconds(20'500), std::chrono::seconds(40));
  EXPECT_FALSE(mail_->SendMail());
  ExpectOutcome(0, "a@xy.test", SMTP_STEP_SENDDATA, SMTP_TIMEOUT, 3017);
}

TEST_F(TlsSmtp, WithoutAProviderNothingIsSent) {
  const auto server = Serve({});
  mail_->Tls(nullptr);
  for (const auto security : {smtpTlsRequired, smtpTlsFromFirstByte}) {
    mail_->Security(security);
    EXPECT_FALSE(mail_->SendMail());
    ExpectOutcome(0, "a@xy.test", SMTP_STEP_STARTTLS, 10043, 3017);
  }
  EXPECT_EQ(server->Connections(), 0u);
}

}  // namespace
}  // namespace netro
