// SendMailCls beyond composing: recipients, BCC, events that change the object, failures of DNS;
// and its checks of addresses that ask servers.
#include "SendMailKit.h"

namespace netro {
namespace {

struct SendMail : SendMailTest {};

TEST_F(SendMail, EachRecipientGetsTheTextOnceInOneSession) {
  SmtpServer server;
  SendTo(server);
  Compose("a@xy.test, \"B, b\" <b@xy.test>", "team: c@zz.test, a@XY.test;", "d@xy.test;b@xy.test");
  EXPECT_TRUE(mail_->SendMail());
  ExpectResult(0, "Success");

  const std::pair<std::string, RecipientTypeEnum> kExpected[] = {
      {"a@xy.test", RecipientStandard},
      {"b@xy.test", RecipientStandard},
      {"c@zz.test", RecipientCarbonCopy},
      {"d@xy.test", RecipientBlindCarbonCopy}};
  ASSERT_EQ(mail_->Outcomes().size(), std::size(kExpected));
  for (std::size_t i = 0; i < std::size(kExpected); ++i) {
    ExpectOutcome(i, kExpected[i].first, SMTP_STEP_DONE, 0, 0);
    const RecipientOutcome& outcome = mail_->Outcomes()[i];
    EXPECT_EQ(outcome.Type, kExpected[i].second);
    EXPECT_EQ(outcome.ResultMessage, "Success");
    ASSERT_EQ(outcome.Tries.size(), 1u);
    EXPECT_EQ(outcome.Tries[0].Host + outcome.Tries[0].Address, "127.0.0.1127.0.0.1");
    EXPECT_EQ(outcome.Protocol.empty(), i > 0) << "the first has the transcript";
  }
  EXPECT_EQ(
      Joined(server.Commands()),
      "EHLO me.test\r\nMAIL FROM:<jane@xy.test>\r\nRCPT TO:<a@xy.test>\r\n"
      "RCPT TO:<b@xy.test>\r\nRCPT TO:<c@zz.test>\r\nRCPT TO:<d@xy.test>\r\nDATA\r\n.\r\nQUIT");
  const std::string transcript = mail_->Outcomes()[0].Protocol;
  EXPECT_EQ(transcript, Joined(events_.lines));
  EXPECT_NE(transcript.find("[127.0.0.1] 220 mx.test ready\r\n[me.test] EHLO me.test"),
            transcript.npos);
  EXPECT_EQ(mail_->ReceiverHostName(), "127.0.0.1");
}

TEST_F(SendMail, NobodyReadsOfABlindCopyUnlessItIsWanted) {
  for (const bool finished : {false, true})
    for (const bool wanted : {false, true}) {
      SmtpServer server;
      SendTo(server);
      Compose("a@xy.test", "c@xy.test", "Secret <d@zz.test>");
      if (finished) {
        EXPECT_TRUE(mail_->NewMsgFromMimeBuffer(
            "From: jane@xy.test\r\nBCC:\r\n Secret <d@zz.test>\r\nTo: a@xy.test\r\n\r\nText",
            "jane@xy.test", "a@xy.test", "c@xy.test", "d@zz.test"));
      }
      mail_->AddBCCToMime(wanted);
      EXPECT_TRUE(mail_->SendMail());
      ASSERT_EQ(server.Messages().size(), 1u);
      EXPECT_EQ(server.Messages()[0].find("d@zz.test") != std::string::npos, wanted) << finished;
    }
}

// The server takes one dot away from each line that begins with one.
TEST_F(SendMail, AFinishedMessageKeepsItsDots) {
  SmtpServer server;
  SendTo(server);
  EXPECT_TRUE(mail_->NewMsgFromMimeBuffer("A: b\n\n.x\n.\n..\ny.\n", "a@xy.test", "b@xy.test"));
  EXPECT_TRUE(mail_->SendMail());
  EXPECT_EQ(server.Messages(), std::vector{"A: b\r\n\r\n..x\r\n..\r\n...\r\ny.\r\n.\r\n"s});
}

TEST_F(SendMail, ARecipientThatFailsDoesNotStopTheOthers) {
  SmtpServer server([](const std::string& command) -> Answer {
    if (command == "RCPT TO:<busy@xy.test>") return "451-come\r\n451 later\r\n";
    if (command == "RCPT TO:<none@xy.test>") return "550 no such user\r\n";
    return SmtpServer::Politely(command);
  });
  SendTo(server);
  Compose("a@xy.test, busy@xy.test", "none@xy.test", "bad@xy, d@xy.test");
  for (const bool simulation : {true, false}) {  // which has the same outcomes
    mail_->Simulation(simulation);
    EXPECT_FALSE(mail_->SendMail());
    ExpectResult(451, "SMTP Error. System Message: '451-come\r\n451 later'");
    EXPECT_EQ(mail_->Outcomes().size(), 5u);
    ExpectOutcome(0, "a@xy.test", SMTP_STEP_DONE, 0, 0);
    ExpectOutcome(1, "busy@xy.test", SMTP_STEP_RCPTTO, 451, 3015);
    ExpectOutcome(2, "none@xy.test", SMTP_STEP_RCPTTO, 550, 3011);
    ExpectOutcome(3, "bad@xy", SMTP_STEP_PRECHECK, SMTP_INITERROR, 3013);
    ExpectOutcome(4, "d@xy.test", SMTP_STEP_DONE, 0, 0);
    EXPECT_EQ(mail_->Outcomes()[2].ResultMessage, "550 no such user\r\n");
    EXPECT_EQ(mail_->Outcomes()[3].ResultMessage, "Invalid eMail Address 'bad@xy'.");
    EXPECT_EQ(server.Messages().size(), simulation ? 0u : 1u);
  }
}

TEST_F(SendMail, TheClassTellsWhetherToTryAgain) {
  const struct {
    std::string command;
    Answer answer;
    std::int32_t step, result, resultClass;
  } kCases[] = {
      {"", "554 not today\r\n", SMTP_STEP_CONNECT, 554, 3011},
      {"", "421 later\r\n", SMTP_STEP_CONNECT, 421, 3015},
      {"", "SSH-2.0-OpenSSH_9.2\r\n", SMTP_STEP_CONNECT, 10043, 3017},
      {"EHLO me.test", "450 not you\r\n", SMTP_STEP_HELO, 450, 3015},
      {"MAIL FROM:<jane@xy.test>", "451 not now\r\n", SMTP_STEP_MAILFROM, 451, 3015},
      {"RCPT TO:<a@xy.test>", "553 what\r\n", SMTP_STEP_RCPTTO, 553, 3011},
      {"RCPT TO:<a@xy.test>", "504 not so\r\n", SMTP_STEP_RCPTTO, 504, 3015},
      {"RCPT TO:<a@xy.test>", "252 perhaps\r\n", SMTP_STEP_RCPTTO, 252, 3017},
      {".", "550 too long\r\n", SMTP_STEP_SENDDATA, 550, 3011},
      {"DATA", {"", After::Close}, SMTP_STEP_SOCKETERROR, 10054, 3017},
      // Only QUIT fails: the message is there, and must not be sent again.
      {"QUIT", "421 too late\r\n", SMTP_STEP_QUIT, 421, 0},
  };
  Compose("a@xy.test");
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.command + " " + c.answer.bytes);
    SmtpServer server(Except(c.command, c.answer));
    SendTo(server);
    EXPECT_EQ(mail_->SendMail(), c.resultClass == 0);
    ExpectOutcome(0, "a@xy.test", c.step, c.result, c.resultClass);
    EXPECT_EQ(mail_->Result(), c.resultClass == 0 ? 0 : c.result);
    const bool named = mail_->ResultMessage().find("SSH-2.0-OpenSSH_9.2'") != std::string::npos;
    EXPECT_EQ(named, c.result == 10043);
  }
}

// A server that puts the message away before it answers; with the envelope in the same write too.
SmtpServer::Reply AtTheEnd(bool chunked, std::function<Answer()> reply) {
  return [=](const std::string& command) -> Answer {
    if (chunked && command.starts_with("EHLO"))
      return "250-mx.test\r\n250-PIPELINING\r\n250 CHUNKING\r\n";
    return command == "." || command.starts_with("BDAT") ? reply() : SmtpServer::Politely(command);
  };
}

TEST_F(SendMail, AReplyAfterNinetySecondsIsHeard) {
  for (const bool chunked : {false, true}) {
    std::atomic<bool> taken = false;
    mail_->Chunking(true);
    SmtpServer server(AtTheEnd(chunked, [&]() -> Answer {
      taken = true;
      for (const TimePoint until = Now() + std::chrono::seconds(90); Now() < until;)
        std::this_thread::yield();
      return "250 queued\r\n";
    }));
    SendTo(server);
    Compose("a@xy.test");
    const RunningClock clock([&] { return taken.load(); });
    EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
    EXPECT_EQ(server.Messages().size(), 1u);
  }
}

// The whole message is sent, and then the server is silent, gone, or no longer listened to. It has
// ten minutes, or what the caller gives it.
TEST_F(SendMail, AnUnknownEndMayHaveArrived) {
  const std::string usual = mail_->SMTPTimeOutString();
  const struct {
    std::string table;
    After after;
    bool cancelled;
    std::int32_t step, result;
    int seconds;
    bool chunked = false;
  } kCases[] = {
      {usual, After::Stay, false, SMTP_STEP_SENDDATA, 99, 600},
      {usual, After::Stay, false, SMTP_STEP_SENDDATA, 99, 600, true},
      {usual, After::Stay, true, SMTP_STEP_SENDDATA, 9999, 0, true},
      {"60:30", After::Stay, false, SMTP_STEP_SENDDATA, 99, 30},
      {usual, After::Close, false, SMTP_STEP_SOCKETERROR, 10054, 0},
      {usual, After::Stay, true, SMTP_STEP_SENDDATA, 9999, 0},
  };
  Compose("a@xy.test");
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.table + " " + std::to_string(c.result));
    std::atomic<bool> taken = false;
    mail_->Chunking(true);
    SmtpServer server(AtTheEnd(c.chunked, [&]() -> Answer {
      taken = true;
      return {"", c.after};
    }));
    SendTo(server);
    mail_->SMTPTimeOutString(c.table);
    const RunningClock clock([&] { return taken.load() && c.seconds > 0; });
    if (c.cancelled) PostWhen([&] { return taken.load(); }, [&] { mail_->StopWaiting(); });
    const Takes time(std::chrono::seconds(c.seconds), std::chrono::seconds(c.seconds + 10));
    EXPECT_FALSE(mail_->SendMail());
    ExpectOutcome(0, "a@xy.test", c.step, c.result, 3019);
  }
}

TEST_F(SendMail, WhatCannotBeSentIsNotTried) {
  SmtpServer server;
  SendTo(server);
  EXPECT_FALSE(mail_->SendMail());
  ExpectResult(4003, "Not a mime file.");
  const struct {
    std::string from, to;
    std::size_t outcomes;
    std::string text;
  } kCases[] = {
      {"jane@xy.test", " ;", 0, "Recipient missing in mime file."},
      {" ", "a@xy.test, b@xy.test", 2, "Sender missing in mime file."},
      {"Jane <jane>", "a@xy.test, b@xy.test", 2,
       "The sender eMail address 'jane' is invalid. The mail will not be send."},
      {"jane@xy.test, b@xy.test", "a@xy.test", 1,
       "The sender eMail address 'jane@xy.test, b@xy.test' is invalid. The mail will not be send."},
      {"jane@xy.test", "(open a@xy.test", 1, "Invalid eMail Address '(open a@xy.test'."},
      {"jane@xy.test", "a@xy.test\r\nDATA", 1, "Invalid eMail Address 'a@xy.test??DATA'."},
      {"jane@xy.test", "\"<\"@xy.test", 1, "Invalid eMail Address '\"<\"@xy.test'."},
      {"jane@xy.test", "a@xy.com", 1, "Invalid eMail Address 'a@xy.com'."},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.from + " " + c.to);
    mail_->TLDs(c.to == "a@xy.com" ? "net,test" : "");
    EXPECT_TRUE(mail_->NewTextMsg("Subject", c.from, c.to, "Text"));
    EXPECT_FALSE(mail_->SendMail());
    ExpectResult(c.outcomes == 0 ? 4001 : SMTP_INITERROR, c.text);
    EXPECT_EQ(mail_->Outcomes().size(), c.outcomes);
    for (const RecipientOutcome& outcome : mail_->Outcomes()) {
      EXPECT_EQ(outcome.StepID + outcome.ResultClass, SMTP_STEP_PRECHECK + 3013);
      EXPECT_EQ(outcome.ResultMessage, c.text);
    }
  }
  EXPECT_EQ(server.Connections(), 0u);
}

TEST_F(SendMail, CancellingLeavesTheRestPending) {
  SmtpServer server(Except("RCPT TO:<b@xy.test>", {"", After::Stay}));
  SendTo(server);
  Compose("a@xy.test, b@xy.test, bad, c@xy.test", "", "d@xy.test");
  for (const auto stop : {&SendMailCls::StopWaiting, &SendMailCls::Kill}) {
    events_.onLine = [&](const std::string& line) {
      if (line.ends_with("RCPT TO:<b@xy.test>")) ((*mail_).*stop)();
    };
    EXPECT_FALSE(mail_->SendMail());
    ExpectResult(9999, "SMTP Error. System Message: 'Canceled while 'RCPTTo'.'");
    EXPECT_EQ(mail_->Outcomes().size(), 5u);
    for (const std::size_t i : {0u, 1u, 3u, 4u})
      ExpectOutcome(i, std::string(1, "ab cd"[i]) + "@xy.test", SMTP_STEP_RCPTTO, 9999, 3018);
    ExpectOutcome(2, "bad", SMTP_STEP_PRECHECK, SMTP_INITERROR, 3013);
  }
}

TEST_F(SendMail, EventsMayChangeEverything) {
  SmtpServer server;
  SendTo(server);
  Compose("a@xy.test", "b@xy.test");
  const std::string text = mail_->MimeBuffer();
  events_.onLine = [&](const std::string&) {
    mail_->NewTextMsg("Other", "other@xy.test", "x@xy.test, y@xy.test", std::string(100'000, 'x'));
    mail_->AddBCCToMime(true);
    mail_->ReceiverHostName("nowhere.test");
    mail_->Port(1);
    mail_->SenderHostName("other.test");
    mail_->TLDs("com");
    // What blocks is refused, and changes nothing.
    EXPECT_FALSE(mail_->SendMail());
    EXPECT_FALSE(mail_->CheckeMailAddress("a@xy.test"));
    EXPECT_EQ(mail_->QueryGatewayName("xy.test") + mail_->QueryGatewayIP("xy.test") +
                  mail_->GetMailAdminForeMail("a@xy.test"),
              "");
  };
  EXPECT_TRUE(mail_->SendMail());
  EXPECT_EQ(mail_->Outcomes().size(), 2u);
  ASSERT_EQ(server.Messages().size(), 1u);
  EXPECT_EQ(server.Messages()[0].substr(0, text.size()), text);
  EXPECT_EQ(server.Commands().at(3), "RCPT TO:<b@xy.test>");
}

TEST_F(SendMail, EachDomainHasItsExchanger) {
  DnsServer names(KnowAll);
  SmtpServer server;
  mail_->Port(server.Port());
  mail_->DNSURL(UrlOf(names));
  EXPECT_TRUE(Send("a@xy.test, b@zz.test, c@[127.0.0.1]")) << mail_->ResultMessage();
  EXPECT_EQ(server.Messages().size(), 3u);
  EXPECT_EQ(TimesAsked(names, "xy.test"), 1u);
  EXPECT_EQ(TimesAsked(names, "zz.test"), 1u);
  EXPECT_EQ(mail_->ReceiverHostName(), "");
  const std::string lookup = "[DNS " + UrlOf(names) + "] mx.test => 127.0.0.1\r\n";
  EXPECT_TRUE(mail_->Outcomes()[1].Protocol.starts_with(lookup)) << mail_->Outcomes()[1].Protocol;
}

TEST_F(SendMail, FailuresOfDnsHaveClassesOfTheirOwn) {
  SmtpServer server;
  mail_->Port(server.Port());
  Compose("a@xy.test, b@xy.test");
  DnsServer nothing(KnowNothing), silent(KeepSilent);
  DnsServer fails(Replying([](auto& reply) { reply.Code(2); }));
  DnsServer refuses(Replying([](auto& reply) { reply.Code(5); }));
  DnsServer empty(Replying([](auto&) {}));
  DnsServer noMail(Replying([](auto& reply) { reply.Answer(MxRecord(0, "")); }));
  DnsServer torn([&](const std::string& query) -> Replies {
    const std::string whole = DnsReply(query).Answer(MxRecord(5, "mx.test")).Bytes();
    return {whole.substr(0, whole.size() - 3)};
  });
  bool waits = false;
  const RunningClock clock([&] { return waits && silent.QueryCount() > 0; });
  const std::tuple<std::string, std::int32_t, std::int32_t> kCases[] = {
      {UrlOf(nothing), 3010, 59},
      {UrlOf(silent), 3016, 10002},
      {"host:0", 3016, 10022},
      {UrlOf(fails), 3016, 11002},
      {UrlOf(refuses), 3016, 11002},
      {UrlOf(torn), 3016, 11002},
      {UrlOf(empty), 3010, 22},
      {UrlOf(noMail), 3010, 10131},
      {UrlOf(nothing) + "," + UrlOf(fails), 3010, 59}};
  for (const auto& [url, resultClass, error] : kCases) {
    mail_->DNSURL(url);
    waits = error == 10002;
    EXPECT_FALSE(mail_->SendMail());
    ExpectResult(SMTP_AUTODNSOK,
                 "DNS Error. System Message: '" + QueryDNSCLS().TranslateDNSResult(error) + "'");
    ExpectOutcome(0, "a@xy.test", SMTP_STEP_AUTODNS, SMTP_AUTODNSOK, resultClass);
    ExpectOutcome(1, "b@xy.test", SMTP_STEP_AUTODNS, SMTP_AUTODNSOK, resultClass);
  }
  EXPECT_EQ(server.Connections(), 0u);
}

struct MailChecks : SendMailTest {};

TEST_F(MailChecks, CheckeMailAddressAsksTheServer) {
  const struct {
    std::string command;
    Answer answer;
    bool holds;
    std::int32_t result;
    std::string text;
  } kCases[] = {
      {"none", "", true, 0, "Success"},
      {"RCPT TO:<a@xy.test>", "550 no such user\r\n", false, 550, "550 no such user\r\n"},
      {"MAIL FROM:<admin@me.test>", "451 later\r\n", false, 451, "451 later\r\n"},
      {"QUIT", "500 what\r\n", true, 500, "500 what\r\n"},
      {"QUIT", {"", After::Close}, true, 10054, "*"},
      {"RCPT TO:<a@xy.test>", {"", After::Close}, false, 10054, "*"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.command + " " + c.answer.bytes);
    SmtpServer server(Except(c.command, c.answer));
    SendTo(server);
    EXPECT_EQ(mail_->CheckeMailAddress("A <a@xy.test>"), c.holds);
    EXPECT_EQ(mail_->Result(), c.result);
    EXPECT_TRUE(c.text == "*" || mail_->ResultMessage() == c.text) << mail_->ResultMessage();
    EXPECT_TRUE(server.Messages().empty());
  }
}

TEST_F(MailChecks, CheckeMailAddressNamesItsSender) {
  SmtpServer server;
  SendTo(server);
  const struct {
    std::string sender, host, helo, from;
  } kCases[] = {{"", "", "me.test", "admin@me.test"},
                {"", "probe.test", "probe.test", "admin@probe.test"},
                {"Jane <jane@xy.test>", "probe.test", "probe.test", "jane@xy.test"},
                {"root", "", "me.test", "root"}};
  std::vector<std::string> commands;
  for (const auto& [sender, host, helo, from] : kCases) {
    EXPECT_TRUE(mail_->CheckeMailAddress("a@xy.test", sender, host));
    commands.insert(commands.end(),
                    {"EHLO " + helo, "MAIL FROM:<" + from + ">", "RCPT TO:<a@xy.test>", "QUIT"});
  }
  EXPECT_EQ(server.Commands(), commands);
  const std::size_t before = server.Connections();
  EXPECT_FALSE(mail_->CheckeMailAddress("a@xy"));
  ExpectResult(2, "Localname part of address is not like '??*.??*'");
  EXPECT_FALSE(mail_->CheckeMailAddress("a@xy.test", "jane@xy.test\r\nRCPT TO:<b@xy.test"));
  EXPECT_EQ(mail_->Result(), SMTP_INITERROR);
  EXPECT_EQ(server.Connections(), before);
  EXPECT_EQ(mail_->SenderHostName(), "me.test");
}

TEST_F(MailChecks, GatewaysOfDomains) {
  SmtpServer server;
  SendTo(server);  // which has nothing to say here
  mail_->ProtocolLevel(pl_Off);
  DnsServer nothing(KnowNothing), names(KnowAll);
  mail_->DNSURL(UrlOf(nothing) + "," + UrlOf(names));
  EXPECT_EQ(mail_->QueryGatewayName("xy.test"), "mx.test");
  EXPECT_EQ(mail_->QueryGatewayIP("xy.test"), "127.0.0.1");
  ExpectResult(0, "");
  EXPECT_EQ(TimesAsked(nothing, "xy.test"), 2u);
  EXPECT_EQ(mail_->QueryGatewayName("[192.0.2.1]"), "192.0.2.1");
  EXPECT_EQ(mail_->ReceiverHostName(), "127.0.0.1");
  const std::string noEntries =
      "DNS Error. System Message: '" + QueryDNSCLS().TranslateDNSResult(59) + "'";
  const auto knowNoAddress =
      Replying([](auto& reply) { reply.Answer(MxRecord(5, "mx.nowhere.test")); });
  DnsServer noAddress([&](const std::string& query) {
    return TypeOf(query) == TYPE_MX ? knowNoAddress(query) : KnowNothing(query);
  });
  mail_->DNSURL(UrlOf(noAddress));
  EXPECT_EQ(mail_->QueryGatewayName("xy.test"), "mx.nowhere.test");
  EXPECT_EQ(mail_->QueryGatewayIP("xy.test"), "");
  ExpectResult(59, noEntries);
  mail_->DNSURL(UrlOf(nothing));
  for (const std::string& domain : {"xy.test"s, ""s, "a b"s, "xy..test"s, "a@b, c@d"s}) {
    EXPECT_EQ(mail_->QueryGatewayName(domain), "") << domain;
    EXPECT_EQ(mail_->QueryGatewayIP(domain), "") << domain;
    EXPECT_NE(mail_->Result(), 0) << domain;
  }
  EXPECT_EQ(mail_->QueryGatewayName("xy.test"), "");
  ExpectResult(59, noEntries);
  EXPECT_EQ(server.Connections(), 0u);
}

TEST_F(MailChecks, TheAdministratorStandsInTheSoaRecord) {
  const std::pair<std::string, std::string> kCases[] = {
      {dns::Name("hostmaster.xy.test"), "hostmaster@xy.test"},
      {dns::Text("john.doe") + dns::Name("xy.test"), "john.doe@xy.test"},
      {dns::Name("root"), "root@www.xy.test"},
      // Nothing that could stand in an address.
      {dns::Name(""), ""},
      {dns::Text("a\r\nb") + dns::Name("xy.test"), ""},
  };
  for (const auto& [mailbox, address] : kCases)
    for (const bool authority : {false, true}) {
      DnsServer nothing(KnowNothing);
      const std::string record = dns::Record(
          dns::kQuestion, TYPE_SOA, dns::Name("ns.test") + mailbox + std::string(20, '\1'));
      DnsServer server(Replying(
          [&](auto& reply) { authority ? reply.Authority(record) : reply.Answer(record); }));
      mail_->DNSURL(UrlOf(nothing) + "," + UrlOf(server));
      EXPECT_EQ(mail_->GetMailAdminForeMail("Jane <jane@www.xy.test>"), address) << mailbox;
      EXPECT_EQ(mail_->Result(), address.empty() ? 59 : 0) << mailbox;
      ASSERT_EQ(server.Queries().size(), 1u);
      EXPECT_EQ(TypeOf(server.Queries()[0]), TYPE_SOA);
      EXPECT_EQ(nothing.Queries().size(), 1u);
    }
  EXPECT_EQ(mail_->GetMailAdminForeMail("jane"), "");
  ExpectResult(4, "eMail Address must contain a Host after @");
}

TEST_F(MailChecks, LookupsCanBeStoppedAndOutliveTheObject) {
  DnsServer silent(KeepSilent);
  const std::function<std::string(SendMailCls&)> kCalls[] = {
      [](SendMailCls& mail) { return mail.GetMailAdminForeMail("a@xy.test"); },
      [](SendMailCls& mail) { return mail.QueryGatewayIP("xy.test"); },
      [](SendMailCls& mail) { return mail.CheckeMailAddress("a@xy.test") ? "true" : ""; }};
  for (const auto& call : kCalls)
    for (const bool remove : {false, true}) {
      mail_ = std::make_unique<SendMailCls>();
      mail_->DNSURL(UrlOf(silent));
      const std::size_t before = silent.QueryCount();
      PostWhen([&, before] { return silent.QueryCount() > before; },
               [&, remove] {
                 if (remove) return mail_.reset();
                 mail_->StopWaiting();
               });
      EXPECT_EQ(call(*mail_), "");
      EXPECT_TRUE(remove || mail_->Result() == 9999);
    }
}

}  // namespace
}  // namespace netro
