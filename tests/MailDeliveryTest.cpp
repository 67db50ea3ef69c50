// Which servers a message is offered to and what they make of it: exchangers in their order, many
// recipients in one session, extensions, logins, kept sessions, and what TraceMail tells.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "SendMailKit.h"
#include "platform/Clock.h"
#include "support/Text.h"

namespace netro {
namespace {

using namespace std::string_literals;
using peers::DnsServer;
using peers::SmtpServer;
using Answer = SmtpServer::Answer;
using After = SmtpServer::After;
using Commands = std::vector<std::string>;

struct Exchanger {
  int preference;
  std::string name;
  std::vector<int> addresses;  // the last number of 127.0.0.x; the servers are at 1
};

DnsServer::Answer Know(std::vector<Exchanger> exchangers) {
  return [=](const std::string& query) -> DnsServer::Replies {
    using namespace peers::dns;
    peers::DnsReply reply(query);
    for (const Exchanger& exchanger : exchangers) {
      const auto preference = static_cast<std::size_t>(exchanger.preference);
      if (TypeOf(query) == TYPE_MX)
        reply.Answer(Record(kQuestion, TYPE_MX, U16(preference) + Name(exchanger.name)));
      const std::size_t at = ToLower(query).find(Name(exchanger.name));
      const bool isAsked =
          at != query.npos && query[at + Name(exchanger.name).size() + 1] == TYPE_A;
      for (const int last : exchanger.addresses) {
        if (isAsked)
          reply.Answer(Record(kQuestion, TYPE_A, Octets({127, 0, 0, last})));
      }
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

class MailDelivery : public SendMailTest {
 protected:
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
      {"", "421 busy\r\n", 2, 0},
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
    EXPECT_EQ(Tries()[0].Host, "first.test");
    EXPECT_EQ(Tries()[0].Address, "127.0.0.1");
    if (c.tries == 2) {
      EXPECT_EQ(Tries()[1].Host, "next.test");
      EXPECT_NE(Tries()[0].Result, 0);
      EXPECT_EQ(Tries()[1].StepID, SMTP_STEP_DONE);
    }
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
    Compose("a@you.test, b@you.test");
    EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
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
  Compose("a@you.test");
  EXPECT_FALSE(mail_->SendMail());
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
    Compose("a@you.test");
    EXPECT_TRUE(mail_->SendMail());
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
    Compose("a@xy.test, b@xy.test, c@xy.test, d@xy.test, e@xy.test");
    EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
    EXPECT_EQ(server.Connections(), 1u);
    EXPECT_EQ(server.Messages().size(), 3u);
    EXPECT_EQ(mail_->Outcomes().size(), 5u);
  }
}

TEST_F(MailDelivery, EhloFallsBackToHelo) {
  SmtpServer server(Except("EHLO me.test", {"502 what\r\n"}));
  SendTo(server);
  Compose("a@xy.test");
  EXPECT_TRUE(mail_->SendMail());
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
  Compose("a@xy.test, b@xy.test, c@xy.test");
  EXPECT_FALSE(mail_->SendMail());
  ExpectOutcome(0, "a@xy.test", SMTP_STEP_DONE, 0, 0);
  ExpectOutcome(1, "b@xy.test", SMTP_STEP_RCPTTO, 550, 3011);
  ExpectOutcome(2, "c@xy.test", SMTP_STEP_DONE, 0, 0);
  EXPECT_EQ(mail_->Outcomes()[0].EnhancedStatus, "2.6.0");
  EXPECT_EQ(mail_->Outcomes()[1].EnhancedStatus, "5.1.1");
  EXPECT_EQ(mail_->Outcomes()[1].ResultMessage, "550 5.1.1 nobody\r\n");
  // A server that takes DATA although it has taken nobody gets the end of no message.
  Compose("b@xy.test");
  EXPECT_FALSE(mail_->SendMail());
  ExpectOutcome(0, "b@xy.test", SMTP_STEP_RCPTTO, 550, 3011);
  EXPECT_EQ(server.Messages().back(), ".\r\n");
}

// What one command was answered with must not decide about the next one: not a byte of the message
// is sent. All replies come at once, with that to DATA: of a server that has said nothing more yet
// nobody could know.
TEST_F(MailDelivery, PipeliningEndsWhenTheRepliesAreTooMany) {
  for (const std::string extra : {"550 extra\r\n", "250 extra\r\n", "354 extra\r\n"}) {
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
      Compose("a@xy.test, b@xy.test");
      EXPECT_FALSE(mail_->SendMail());
      EXPECT_EQ(server.Messages(), Commands{});
      for (const RecipientOutcome& outcome : mail_->Outcomes()) EXPECT_EQ(outcome.Accepted, false);
    }
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
  const struct {
    std::string extensions, message, from, to, mail, rcpt;
    std::int32_t step, result, resultClass;
  } kCases[] = {
      {all, "A: b\n\nx\n", "j@xy.test", "a@xy.test", "MAIL FROM:<j@xy.test> RET=HDRS ENVID=i+2Bd",
       "RCPT TO:<a@xy.test> NOTIFY=SUCCESS,DELAY", SMTP_STEP_DONE, 0, 0},
      {all, "A: b\n\n\xe9\n", "j@xy.test", "a@xy.test",
       "MAIL FROM:<j@xy.test> BODY=8BITMIME RET=HDRS ENVID=i+2Bd",
       "RCPT TO:<a@xy.test> NOTIFY=SUCCESS,DELAY", SMTP_STEP_DONE, 0, 0},
      {all, "A: b\n\nx\n", "j@xy.test", "\xc3\xa9@xy.test",
       "MAIL FROM:<j@xy.test> SMTPUTF8 RET=HDRS ENVID=i+2Bd",
       "RCPT TO:<\xc3\xa9@xy.test> NOTIFY=SUCCESS,DELAY", SMTP_STEP_DONE, 0, 0},
      {"", "A: \xc3\xa9\n\nx\n", "j@xy.test", "a@xy.test", "MAIL FROM:<j@xy.test>",
       "RCPT TO:<a@xy.test>", SMTP_STEP_DONE, 0, 0},
      {"250-SMTPUTF8\r\n", "A: \xc3\xa9\n\nx\n", "j@xy.test", "a@xy.test",
       "MAIL FROM:<j@xy.test> SMTPUTF8", "RCPT TO:<a@xy.test>", SMTP_STEP_DONE, 0, 0},
      {"250-SIZE 21\r\n", "A: b\n\nxxxxxx\n", "j@xy.test", "a@xy.test",
       "MAIL FROM:<j@xy.test> SIZE=19", "RCPT TO:<a@xy.test>", SMTP_STEP_DONE, 0, 0},
      {"250-SIZE 10\r\n", "A: b\n\nxxxxxx\n", "j@xy.test", "a@xy.test", "", "",
       SMTP_STEP_MAILFROM, 552, 3011},
      {"", "A: b\n\nx\n", "j@xy.test", "\xc3\xa9@xy.test", "", "", SMTP_STEP_RCPTTO, 553, 3011},
      {"", "A: b\n\nx\n", "\xc3\xa9@xy.test", "a@xy.test", "", "", SMTP_STEP_MAILFROM, 553, 3011},
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
    ExpectOutcome(0, c.to, c.step, c.result, c.resultClass);
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
  Compose("a@b\xc3\xbc.test");
  EXPECT_FALSE(mail_->SendMail());
  EXPECT_NE(mail_->ResultMessage().find("xn--"), std::string::npos);
}

TEST_F(MailDelivery, AKeptSessionServesTheNextMessages) {
  SmtpServer server(Offering("250-PIPELINING\r\n"));
  SendTo(server);
  mail_->KeepSession(true);
  Commands expected = {"EHLO me.test"};
  for (const char* to : {"a@xy.test", "b@zz.test", "c@xy.test"}) {
    Compose(to);
    EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
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
    Compose("a@xy.test");
    EXPECT_TRUE(mail_->SendMail());
    EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
    EXPECT_EQ(server.Connections(), 2u);
    EXPECT_EQ(server.Messages().size(), 2u);
    EXPECT_EQ(Tries().size(), 1u);
  }
}

TEST_F(MailDelivery, LogsInAndShowsNoSecret) {
  const struct {
    std::string offered, user, password, token;
    bool plain;
    Commands commands;
    std::int32_t step, result;
  } kCases[] = {
      {"PLAIN LOGIN", "tim", "secret", "", true, {"AUTH PLAIN AHRpbQBzZWNyZXQ="}, 80, 0},
      {"LOGIN", "tim", "secret", "", true, {"AUTH LOGIN", "dGlt", "c2VjcmV0"}, 80, 0},
      {"CRAM-MD5", "tim", "secret", "", false,
       {"AUTH CRAM-MD5", "dGltIGRhZGViZmU4MWJkOWMxNTZjOTc5Zjk1OTI5M2M1ZWVi"}, 80, 0},
      {"PLAIN", "tim", "secret", "", false, {}, SMTP_STEP_AUTH, 10043},
      {"GSSAPI", "tim", "secret", "", true, {}, SMTP_STEP_AUTH, 10043},
      {"", "tim", "secret", "", true, {}, SMTP_STEP_AUTH, 10043},
      {"XOAUTH2 PLAIN", "tim", "", "token", true,
       {"AUTH XOAUTH2 dXNlcj10aW0BYXV0aD1CZWFyZXIgdG9rZW4BAQ=="}, 80, 0},
      {"PLAIN", "tim", "wrong", "", true, {"AUTH PLAIN AHRpbQB3cm9uZw=="}, SMTP_STEP_AUTH, 535},
      {"PLAIN", "tim", "a\nb", "", true, {}, SMTP_STEP_PRECHECK, 97},
      // A password that is a part of the line, and a line that comes back without a code.
      {"PLAIN", "tim", "HRp", "", true, {"AUTH PLAIN AHRpbQBIUnA="}, 80, 0},
      {"PLAIN", "tim", "echo", "", true, {"AUTH PLAIN AHRpbQBlY2hv"}, SMTP_STEP_AUTH, 10043},
      // The better one is refused.
      {"PLAIN CRAM-MD5", "tim", "next", "", true,
       {"AUTH CRAM-MD5", "AUTH PLAIN AHRpbQBuZXh0"}, 80, 0},
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
    mail_->User(c.user);
    mail_->Password(c.password);
    mail_->AccessToken(c.token);
    mail_->AllowPlainPasswords(c.plain);
    Compose("a@xy.test");
    events_ = SmtpSink();
    EXPECT_EQ(mail_->SendMail(), c.result == 0) << mail_->ResultMessage();
    const RecipientOutcome& outcome = mail_->Outcomes()[0];
    EXPECT_EQ(outcome.StepID, c.step);
    EXPECT_EQ(outcome.Result, c.result);
    EXPECT_EQ(server.Messages().size(), c.result == 0 ? 1u : 0u);
    for (const std::string& secret :
         {c.password, c.token, "c2VjcmV0"s, "AHRpb"s, "bQB"s, "dXNlcj"s, "dGltID"s}) {
      if (secret.empty()) continue;
      EXPECT_EQ((Joined(events_.lines) + outcome.Protocol + outcome.ResultMessage +
                 mail_->ResultMessage()).find(secret), std::string::npos) << secret;
    }
    const Commands commands = server.Commands();
    for (const std::string& command : c.commands) {
      EXPECT_EQ(std::ranges::count(commands, command), 1) << command << "\n" << Joined(commands);
    }
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
  EXPECT_EQ(good.Address, "127.0.0.1");
  EXPECT_EQ(good.Greeting, "220 mx.test ready");
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
