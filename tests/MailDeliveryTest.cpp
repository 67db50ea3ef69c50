// Exchangers in their order, many recipients in a session, extensions, logins, kept sessions.
#include "SendMailKit.h"
#include "support/Text.h"

namespace netro {
namespace {

using Commands = std::vector<std::string>;

struct Exchanger {
  std::size_t preference;
  std::string name;
  std::vector<int> addresses;  // the last number of 127.0.0.x; the servers are at 1
};

DnsServer::Answer Know(std::vector<Exchanger> exchangers) {
  return [=](const std::string& query) -> Replies {
    using namespace dns;
    DnsReply reply(query);
    for (const Exchanger& one : exchangers) {
      if (TypeOf(query) == TYPE_MX) reply.Answer(MxRecord(one.preference, one.name));
      if (ToLower(query).find(Name(one.name) + U16(TYPE_A)) == query.npos) continue;
      for (const int last : one.addresses)
        reply.Answer(Record(kQuestion, TYPE_A, Octets({127, 0, 0, last})));
    }
    return {reply.Bytes()};
  };
}

SmtpServer::Reply Offering(std::string extensions, SmtpServer::Reply other = SmtpServer::Politely) {
  return [=](const std::string& command) -> Answer {
    if (command.starts_with("EHLO")) return "250-mx.test\r\n" + extensions + "250 HELP\r\n";
    return other(command);
  };
}

Commands Envelope(const Commands& recipients, const std::string& sender = "jane@xy.test") {
  Commands commands = {"MAIL FROM:<" + sender + ">"};
  for (const std::string& recipient : recipients) commands.push_back("RCPT TO:<" + recipient + ">");
  commands.insert(commands.end(), {"DATA", "."});
  return commands;
}

struct MailDelivery : SendMailTest {
  const std::vector<DeliveryTry>& Tries(std::size_t index = 0) {
    return mail_->Outcomes().at(index).Tries;
  }
  void LookUpWith(const DnsServer& dns, const SmtpServer& server) {
    DefaultHostLookup().Clear();
    mail_->ReceiverHostName("");
    mail_->DNSURL(UrlOf(dns));
    mail_->Port(server.Port());
  }
};

// What each exchanger does at the first connection; what it takes is taken by the next.
TEST_F(MailDelivery, GoesOnToTheNextExchangerUntilTheDataBegins) {
  const struct {
    std::string command;
    Answer answer;
    std::size_t tries;
    std::int32_t resultClass;
  } kCases[] = {
      {"", "554 not me\r\n", 2, 0},
      {"", {"", After::Close}, 2, 0},
      {"EHLO me.test", {"", After::Reset}, 2, 0},
      {"MAIL FROM:<jane@xy.test>", "550 not you\r\n", 2, 0},
      {"RCPT TO:<a@you.test>", "450 later\r\n", 2, 0},
      {"RCPT TO:<a@you.test>", "550 nobody\r\n", 1, 3011},
      {"DATA", "451 no room\r\n", 2, 0},
      {".", "451 no room\r\n", 1, 3015},
      {".", "251 taken\r\n", 1, 0},
      {".", "354 what\r\n", 1, 3019},
      {"RCPT TO:<a@you.test>", "251 will forward\r\n", 1, 0},
      {".", {"", After::Close}, 1, 3019},
  };
  DnsServer dns(Know({{10, "first.test", {1}}, {20, "next.test", {1}}}));
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.command + " " + c.answer.bytes);
    std::atomic<int> connection = 0;
    SmtpServer server([&](const std::string& command) -> Answer {
      if (command.empty()) ++connection;
      return connection == 1 && command == c.command ? c.answer : SmtpServer::Politely(command);
    });
    LookUpWith(dns, server);
    Compose("a@you.test");
    EXPECT_EQ(mail_->SendMail(), c.resultClass == 0) << mail_->ResultMessage();
    EXPECT_EQ(mail_->Outcomes()[0].ResultClass, c.resultClass);
    ASSERT_EQ(Tries().size(), c.tries);
    EXPECT_EQ(Tries()[0].Host + Tries()[0].Address, "first.test127.0.0.1");
    if (c.tries == 1) continue;
    EXPECT_EQ(Tries()[1].Host, "next.test");
    EXPECT_NE(Tries()[0].Result, 0);
    EXPECT_EQ(Tries()[1].StepID, SMTP_STEP_DONE);
  }
}

// 127.0.0.9 refuses connections. The addresses of one exchanger race; all of it is one try.
TEST_F(MailDelivery, AllAddressesOfAllExchangersAreTried) {
  const struct {
    std::vector<Exchanger> exchangers;
    std::string hosts;
  } kCases[] = {
      {{{20, "b.test", {1}}, {10, "a.test", {9}}}, "a.test b.test "},
      {{{10, "a.test", {9, 1}}}, "a.test "},
      {{{10, "a.test", {}}, {65'535, "c.test", {1}}, {40'000, "b.test", {9}}},
       "a.test b.test c.test "},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.hosts);
    DnsServer dns(Know(c.exchangers));
    SmtpServer server;
    LookUpWith(dns, server);
    EXPECT_TRUE(Send("a@you.test, b@you.test")) << mail_->ResultMessage();
    std::string hosts;
    for (const DeliveryTry& one : Tries()) hosts += one.Host + " ";
    EXPECT_EQ(hosts, c.hosts);
    EXPECT_EQ(server.Messages().size(), 1u);
  }
}

TEST_F(MailDelivery, ASessionThatFailsGoesOnToTheOtherAddresses) {
  DnsServer dns(Know({{10, "a.test", {1, 9}}}));
  SmtpServer server(Except("", {"421 busy\r\n"}));
  LookUpWith(dns, server);
  EXPECT_FALSE(Send("a@you.test"));
  ASSERT_EQ(Tries().size(), 2u);
  EXPECT_EQ(Tries()[0].Result, 421);
  EXPECT_EQ(Tries()[1].Result, 10061);
  ExpectOutcome(0, "a@you.test", SMTP_STEP_CONNECT, 421, 3015);
}

TEST_F(MailDelivery, EqualPreferencesComeInRandomOrder) {
  DnsServer dns(Know({{10, "a.test", {1}}, {10, "b.test", {1}}}));
  SmtpServer server;
  std::vector<std::string> firsts;
  for (int i = 0; i < 64 && std::ranges::count(firsts, firsts.empty() ? "" : firsts[0]) == i; ++i) {
    LookUpWith(dns, server);
    EXPECT_TRUE(Send("a@you.test"));
    firsts.push_back(Tries()[0].Host);
  }
  EXPECT_NE(firsts.front(), firsts.back());
}

// RFC 5321, section 4.5.3.1.10.
TEST_F(MailDelivery, RecipientsThatAreTooManyGoIntoTheNextTransaction) {
  for (const char* extensions : {"", "250-PIPELINING\r\n"}) {
    std::atomic<int> taken = 0;
    SmtpServer server(Offering(extensions, [&](const std::string& command) -> Answer {
      if (command == ".") taken = 0;
      if (command.starts_with("RCPT") && ++taken > 2) return "452 too many\r\n";
      return SmtpServer::Politely(command);
    }));
    SendTo(server);
    EXPECT_TRUE(Send("a@xy.test, b@xy.test, c@xy.test, d@xy.test, e@xy.test"));
    EXPECT_EQ(server.Connections(), 1u);
    EXPECT_EQ(server.Messages().size(), 3u);
    EXPECT_EQ(mail_->Outcomes().size(), 5u);
  }
}

TEST_F(MailDelivery, EhloFallsBackToHelo) {
  SmtpServer server(Except("EHLO me.test", {"502 what\r\n"}));
  SendTo(server);
  EXPECT_TRUE(Send("a@xy.test"));
  mail_->Extensions(false);
  EXPECT_TRUE(mail_->SendMail());
  const Commands commands = server.Commands();
  EXPECT_EQ(std::ranges::count(commands, "HELO me.test"), 2);
  EXPECT_EQ(std::ranges::count(commands, "EHLO me.test"), 1);
}

TEST_F(MailDelivery, PipeliningSendsAllUpToTheData) {
  SmtpServer server(Offering("250-PIPELINING\r\n", [](const std::string& command) -> Answer {
    if (command == "RCPT TO:<b@xy.test>") return "550 5.1.1 nobody\r\n";
    if (command == ".") return "250 2.6.0 queued\r\n";
    return SmtpServer::Politely(command);
  }));
  SendTo(server);
  EXPECT_FALSE(Send("a@xy.test, b@xy.test, c@xy.test"));
  ExpectOutcome(0, "a@xy.test", SMTP_STEP_DONE, 0, 0);
  ExpectOutcome(1, "b@xy.test", SMTP_STEP_RCPTTO, 550, 3011);
  ExpectOutcome(2, "c@xy.test", SMTP_STEP_DONE, 0, 0);
  EXPECT_EQ(mail_->Outcomes()[0].EnhancedStatus, "2.6.0");
  EXPECT_EQ(mail_->Outcomes()[1].EnhancedStatus, "5.1.1");
  EXPECT_EQ(mail_->Outcomes()[1].ResultMessage, "550 5.1.1 nobody\r\n");
  // A server that takes DATA although it has taken nobody gets the end of no message.
  EXPECT_FALSE(Send("b@xy.test"));
  ExpectOutcome(0, "b@xy.test", SMTP_STEP_RCPTTO, 550, 3011);
  EXPECT_EQ(server.Messages().back(), ".\r\n");
}

// What one command was answered with must not decide about the next one. All replies come at once:
// of a server that has said nothing more yet nobody could know.
TEST_F(MailDelivery, PipeliningEndsWhenTheRepliesAreTooMany) {
  for (const std::string extra : {"550 extra\r\n", "250 extra\r\n", "354 extra\r\n"})
    for (const char* const command : {"MAIL FROM:<jane@xy.test>", "RCPT TO:<b@xy.test>", "DATA"}) {
      SCOPED_TRACE(command + (" " + extra));
      std::string held;
      SmtpServer server(Offering("250-PIPELINING\r\n", [&](const std::string& asked) -> Answer {
        Answer answer = SmtpServer::Politely(asked);
        if (asked == command) answer.bytes += extra;
        if (asked.starts_with("MAIL") || asked.starts_with("RCPT")) {
          held += std::exchange(answer.bytes, "");
        } else if (asked == "DATA") {
          answer.bytes = std::exchange(held, "") + answer.bytes;
        }
        return answer;
      }));
      SendTo(server);
      EXPECT_FALSE(Send("a@xy.test, b@xy.test"));
      EXPECT_EQ(server.Messages(), Commands{});
      for (const RecipientOutcome& outcome : mail_->Outcomes()) EXPECT_EQ(outcome.Accepted, false);
    }
}

// One round trip: a recipient that is refused does not keep the message from the others.
TEST_F(MailDelivery, ChunkingSendsASmallMessageWithItsEnvelope) {
  constexpr const char* kOffer = "250-PIPELINING\r\n250-CHUNKING\r\n";
  const struct {
    const char* refused;
    Answer how;
    std::int32_t step, result, resultClass;  // of the first recipient
    std::int32_t secondClass;
  } kCases[] = {
      {"none", "", SMTP_STEP_DONE, 0, 0, 0},
      {"RCPT TO:<a", "550 no\r\n", SMTP_STEP_RCPTTO, 550, 3011, 0},
      {"RCPT", "550 no\r\n", SMTP_STEP_RCPTTO, 550, 3011, 3011},
      {"MAIL", "550 no\r\n", SMTP_STEP_MAILFROM, 550, 3011, 3011},
      {"BDAT", "452 full\r\n", SMTP_STEP_SENDDATA, 452, 3015, 3015},
      {"BDAT", {"", After::Close}, SMTP_STEP_SOCKETERROR, 10054, 3019, 3019},
      {"RCPT TO:<b", {"", After::Close}, SMTP_STEP_SOCKETERROR, 10054, 3019, 3019},
      {"MAIL", {"421 bye\r\n", After::Close}, SMTP_STEP_MAILFROM, 421, 3015, 3015},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.refused) + ' ' + c.how.bytes);
    SmtpServer server(Offering(kOffer, [&](const std::string& command) -> Answer {
      return command.starts_with(c.refused) ? c.how : SmtpServer::Politely(command);
    }));
    SendTo(server);
    mail_->Chunking(true);
    EXPECT_TRUE(mail_->NewMsgFromMimeBuffer("A: b\n\n.\n..x\nend", "j@xy.test",
                                            "a@xy.test, b@xy.test"));
    EXPECT_EQ(mail_->SendMail(), c.resultClass == 0);
    ExpectOutcome(0, "a@xy.test", c.step, c.result, c.resultClass);
    EXPECT_EQ(mail_->Outcomes()[1].ResultClass, c.secondClass);
    EXPECT_EQ(server.Connections(), 1u);
    if (c.secondClass != 0) continue;
    EXPECT_EQ(server.Messages(), Commands{"A: b\r\n\r\n.\r\n..x\r\nend\r\n"});
  }
}

// Whose message is larger than a block, or who has not asked for it, gets no chunk.
TEST_F(MailDelivery, ChunkingIsForSmallMessagesAndThoseWhoWantIt) {
  SmtpServer server(Offering("250-PIPELINING\r\n250-CHUNKING\r\n"));
  SendTo(server);
  mail_->KeepSession(true);
  const auto sent = [&](std::size_t size) {
    EXPECT_TRUE(mail_->NewMsgFromMimeBuffer("A: b\r\n\r\n" + std::string(size, 'x'), "j@xy.test",
                                            "a@xy.test"));
    EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
    return server.Commands().back();
  };
  EXPECT_EQ(sent(4000), ".");
  mail_->Chunking(true);
  EXPECT_EQ(sent(4000), "BDAT 4010 LAST");
  AdvanceClockForTests(std::chrono::seconds(11));
  EXPECT_EQ(sent(1), ".") << "the session may be gone";
  EXPECT_EQ(sent(1), "BDAT 11 LAST");
  mail_->Events(nullptr);
  EXPECT_EQ(sent(60'000), "BDAT 60010 LAST");
  EXPECT_EQ(sent(70'000), ".");
}

TEST_F(MailDelivery, ExtensionsAreUsedWhereTheyAreOffered) {
  const std::string all = "250-8BITMIME\r\n250-SMTPUTF8\r\n250-DSN\r\n";
  const std::string plain = "A: b\n\nx\n", utf8 = "A: \xc3\xa9\n\nx\n", sized = "A: b\n\nxxxxxx\n";
  const std::string from = "MAIL FROM:<j@xy.test>", to = "RCPT TO:<a@xy.test>";
  const std::string report = " RET=HDRS ENVID=i+2Bd", notify = " NOTIFY=SUCCESS,DELAY";
  const struct {
    std::string extensions, message, mail, rcpt;
    std::int32_t step = SMTP_STEP_DONE, result = 0;
    std::string from = "j@xy.test", to = "a@xy.test";
  } kCases[] = {
      {all, plain, from + report, to + notify},
      {all, "A: b\n\n\xe9\n", from + " BODY=8BITMIME" + report, to + notify},
      {all, plain, from + " SMTPUTF8" + report, "RCPT TO:<\xc3\xa9@xy.test>" + notify,
       SMTP_STEP_DONE, 0, "j@xy.test", "\xc3\xa9@xy.test"},
      {"", utf8, from, to},
      {"250-SMTPUTF8\r\n", utf8, from + " SMTPUTF8", to},
      {"250-SIZE 21\r\n", sized, from + " SIZE=19", to},
      {"250-SIZE 10\r\n", sized, "", "", SMTP_STEP_MAILFROM, 552},
      {"", plain, "", "", SMTP_STEP_RCPTTO, 553, "j@xy.test", "\xc3\xa9@xy.test"},
      {"", plain, "", "", SMTP_STEP_MAILFROM, 553, "\xc3\xa9@xy.test"},
  };
  mail_->Notify(notifySuccess | notifyDelay);
  mail_->Return(returnHeaders);
  mail_->EnvelopeID("i+d");
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.extensions + c.message + c.to);
    SmtpServer server(Offering(c.extensions));
    SendTo(server);
    EXPECT_TRUE(mail_->NewMsgFromMimeBuffer(c.message, c.from, c.to));
    EXPECT_EQ(mail_->SendMail(), c.result == 0) << mail_->ResultMessage();
    ExpectOutcome(0, c.to, c.step, c.result, c.result == 0 ? 0 : 3011);
    const Commands commands = server.Commands();
    for (const std::string& command : {c.mail, c.rcpt}) {
      if (command.empty()) continue;
      EXPECT_EQ(std::ranges::count(commands, command), 1) << Joined(commands);
    }
    EXPECT_EQ(commands.size() > 1, !c.mail.empty() || c.step == SMTP_STEP_DONE) << Joined(commands);
  }
}

// A bounce has no sender; a domain beyond ASCII is not looked up.
TEST_F(MailDelivery, SpecialSendersAndDomains) {
  SmtpServer server;
  SendTo(server);
  mail_->NullSender(true);
  EXPECT_TRUE(mail_->NewMsgFromMimeBuffer("A: b\n\nx", "", "a@xy.test"));
  EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
  EXPECT_EQ(server.Commands().at(1), "MAIL FROM:<>");
  mail_->ReceiverHostName("");
  EXPECT_FALSE(Send("a@b\xc3\xbc.test"));
  EXPECT_NE(mail_->ResultMessage().find("xn--"), std::string::npos);
}

TEST_F(MailDelivery, AKeptSessionServesTheNextMessages) {
  SmtpServer server(Offering("250-PIPELINING\r\n"));
  SendTo(server);
  mail_->KeepSession(true);
  Commands expected = {"EHLO me.test"};
  for (const char* to : {"a@xy.test", "b@zz.test", "c@xy.test"}) {
    EXPECT_TRUE(Send(to)) << mail_->ResultMessage();
    EXPECT_EQ(Tries().size(), 1u);
    for (const std::string& command : Envelope({to})) expected.push_back(command);
  }
  EXPECT_EQ(server.Connections(), 1u);
  EXPECT_EQ(server.Commands(), expected);
  mail_->SenderHostName("other.test");  // who is somebody else begins anew
  EXPECT_TRUE(mail_->SendMail());
  EXPECT_EQ(server.Connections(), 2u);
  mail_->EndSession();
  EXPECT_EQ(server.Commands().back(), "QUIT");
  EXPECT_TRUE(mail_->SendMail());
  EXPECT_EQ(server.Connections(), 3u);
}

// However the server ends it: it is opened once more, and nothing is sent twice.
TEST_F(MailDelivery, AKeptSessionThatIsDeadIsOpenedOnceMore) {
  for (const Answer& end : {Answer("421 idle\r\n", After::Close), Answer("", After::Reset),
                            Answer("421 idle\r\n")}) {
    SmtpServer server([&, mails = std::make_shared<std::atomic<int>>(0)](
                          const std::string& command) -> Answer {
      if (command.starts_with("MAIL") && ++*mails == 2) return end;
      return SmtpServer::Politely(command);
    });
    mail_ = std::make_unique<SendMailCls>();
    mail_->SenderHostName("me.test");
    SendTo(server);
    mail_->KeepSession(true);
    EXPECT_TRUE(Send("a@xy.test"));
    EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
    EXPECT_EQ(server.Connections(), 2u);
    EXPECT_EQ(server.Messages().size(), 2u);
    EXPECT_EQ(Tries().size(), 1u);
  }
}

TEST_F(MailDelivery, LogsInAndShowsNoSecret) {
  const Commands cram = {"AUTH CRAM-MD5", "dGltIGRhZGViZmU4MWJkOWMxNTZjOTc5Zjk1OTI5M2M1ZWVi"};
  const std::string oauth = "dXNlcj10aW0BYXV0aD1CZWFyZXIgdG9rZW4BAQ==";
  const struct {
    std::string offered, password;
    Commands commands;
    std::int32_t result = 0;
    bool plain = true;
    std::string token = "";
  } kCases[] = {
      {"PLAIN LOGIN", "secret", {"AUTH PLAIN AHRpbQBzZWNyZXQ="}},
      {"LOGIN", "secret", {"AUTH LOGIN", "dGlt", "c2VjcmV0"}},
      {"CRAM-MD5", "secret", cram, 0, false},
      {"PLAIN", "secret", {}, 10043, false},
      {"GSSAPI", "secret", {}, 10043},
      {"", "secret", {}, 10043},
      {"XOAUTH2 PLAIN", "", {"AUTH XOAUTH2 " + oauth}, 0, true, "token"},
      {"PLAIN", "wrong", {"AUTH PLAIN AHRpbQB3cm9uZw=="}, 535},
      {"PLAIN", "a\nb", {}, 97},
      // A password that is a part of the line, and a line that comes back without a code.
      {"PLAIN", "HRp", {"AUTH PLAIN AHRpbQBIUnA="}},
      {"PLAIN", "echo", {"AUTH PLAIN AHRpbQBlY2hv"}, 10043},
      // The better one is refused.
      {"PLAIN CRAM-MD5", "next", {"AUTH CRAM-MD5", "AUTH PLAIN AHRpbQBuZXh0"}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.offered + c.password);
    auto rounds = std::make_shared<std::atomic<int>>(0);
    const std::string line = c.offered.empty() ? "" : "250-AUTH " + c.offered + "\r\n";
    SmtpServer server(Offering(line, [&, rounds](const std::string& command) -> Answer {
      if (std::ranges::count(c.commands, command) == 0) return SmtpServer::Politely(command);
      // Servers that repeat what they were told.
      const std::string echo = " " + command + " " + c.password + "\r\n";
      if (c.password == "echo") return command + "\r\n";
      if (c.password == "wrong") return "535 5.7.8 no" + echo;
      if (c.password == "next" && command == "AUTH CRAM-MD5") return "504 5.5.4 no" + echo;
      return command == c.commands.back() ? "235-ok" + echo + "235 ok" + echo : "334 PHg+\r\n";
    }));
    SendTo(server);
    mail_->User("tim");
    mail_->Password(c.password);
    mail_->AccessToken(c.token);
    mail_->AllowPlainPasswords(c.plain);
    Compose("a@xy.test");
    events_ = SmtpSink();
    EXPECT_EQ(mail_->SendMail(), c.result == 0) << mail_->ResultMessage();
    const RecipientOutcome& outcome = mail_->Outcomes()[0];
    const std::int32_t failed = c.result == 97 ? SMTP_STEP_PRECHECK : SMTP_STEP_AUTH;
    EXPECT_EQ(outcome.StepID, c.result == 0 ? SMTP_STEP_DONE : failed);
    EXPECT_EQ(outcome.Result, c.result);
    EXPECT_EQ(server.Messages().size(), c.result == 0 ? 1u : 0u);
    for (const std::string& secret :
         {c.password, c.token, "c2VjcmV0"s, "AHRpb"s, "bQB"s, "dXNlcj"s, "dGltID"s}) {
      if (secret.empty()) continue;
      EXPECT_EQ((Joined(events_.lines) + outcome.Protocol + outcome.ResultMessage +
                 mail_->ResultMessage()).find(secret), std::string::npos) << secret;
    }
    const Commands commands = server.Commands();
    for (const std::string& command : c.commands)
      EXPECT_EQ(std::ranges::count(commands, command), 1) << command << "\n" << Joined(commands);
  }
}

TEST_F(MailDelivery, EndsAfterTheLastStep) {
  Commands commands = {"EHLO me.test", "AUTH PLAIN AHRpbQBzZWNyZXQ=", "MAIL FROM:<jane@xy.test>",
                       "RCPT TO:<root@localhost>", "QUIT"};
  const std::int32_t kLast[] = {SMTP_STEP_RCPTTO, SMTP_STEP_MAILFROM, SMTP_STEP_AUTH,
                                SMTP_STEP_HELO, SMTP_STEP_CONNECT};
  for (const std::int32_t step : kLast) {
    SmtpServer server(Offering("250-PIPELINING\r\n250-AUTH PLAIN\r\n",
                               [](const std::string& command) -> Answer {
                                 return command.starts_with("AUTH") ? Answer("235 ok\r\n")
                                                                    : SmtpServer::Politely(command);
                               }));
    SendTo(server);
    mail_->User("tim");
    mail_->Password("secret");
    mail_->AllowPlainPasswords(true);
    mail_->LastStep(step);
    mail_->LocalHosts(true);
    Compose("root@localhost");  // which a named server may know
    EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
    EXPECT_EQ(server.Commands(), commands) << step;
    if (commands.size() > 1) commands.erase(commands.end() - 2);
  }
  mail_->ReceiverHostName("");
  EXPECT_FALSE(mail_->SendMail());
  EXPECT_EQ(mail_->Outcomes()[0].ResultClass, 3013);
}

TEST_F(MailDelivery, TraceTellsWhatEachExchangerWouldDo) {
  DnsServer dns(Know({{10, "a.test", {9}}, {20, "b.test", {1, 9}}}));
  SmtpServer server(Offering("250-SIZE 99\r\n", [](const std::string& command) -> Answer {
    return command == "RCPT TO:<no@you.test>" ? "550 5.1.1 no\r\n" : SmtpServer::Politely(command);
  }));
  LookUpWith(dns, server);
  Compose("a@you.test, no@you.test, bad");
  const std::vector<MailTrace> traces = mail_->TraceMail();
  ASSERT_EQ(traces.size(), 3u);
  ASSERT_EQ(traces[0].Exchangers.size(), 2u);
  EXPECT_EQ(traces[0].Exchangers[0].Host, "a.test");
  EXPECT_EQ(traces[0].Exchangers[0].Result, 10061);
  const ExchangerTrace& good = traces[0].Exchangers[1];
  EXPECT_EQ(good.Addresses, (Commands{"127.0.0.1", "127.0.0.9"}));
  EXPECT_EQ(good.Address + good.Greeting, "127.0.0.1220 mx.test ready");
  EXPECT_EQ(good.Extensions, (Commands{"SIZE 99", "HELP"}));
  EXPECT_TRUE(good.SenderAccepted && good.RecipientAccepted);
  EXPECT_EQ(good.StepID, SMTP_STEP_DONE);
  EXPECT_TRUE(traces[1].Exchangers[1].SenderAccepted);
  EXPECT_FALSE(traces[1].Exchangers[1].RecipientAccepted);
  EXPECT_EQ(traces[1].Exchangers[1].Result, 550);
  EXPECT_EQ(traces[2].ResultClass, 3013);
  EXPECT_EQ(server.Messages().size(), 0u);
}

// SMTPCls has all of it as an option.
TEST_F(MailDelivery, ASessionOfSmtpClsRefusesBareLineEnds) {
  SmtpServer server(Offering("250-PIPELINING\r\n"));
  SMTPCls smtp;
  smtp.SenderHostName("me.test");
  smtp.ReceiverHostName("127.0.0.1");
  smtp.Port(server.Port());
  smtp.StrictLines(true);
  for (const char* text : {"a\r\nb\nc", "a\r\nb\rc", "a\r\nb\r", "\nxyz"}) {
    EXPECT_FALSE(smtp.SMTP("a@xy.test", "b@xy.test", text));
    EXPECT_EQ(smtp.StepID(), SMTP_STEP_PRECHECK);
    EXPECT_NE(smtp.ResultMessage().find(text[0] == '\n' ? "byte 0" : "byte 4"), std::string::npos);
  }
  EXPECT_EQ(server.Connections(), 0u);
  smtp.Extensions(true);
  EXPECT_TRUE(smtp.SMTP("a@xy.test", "b@xy.test", "a\r\nb\r\n")) << smtp.ResultMessage();
  Commands expected = Envelope({"b@xy.test"}, "a@xy.test");
  expected.insert(expected.begin(), "EHLO me.test");
  expected.push_back("QUIT");
  EXPECT_EQ(server.Commands(), expected);
}

}  // namespace
}  // namespace netro
