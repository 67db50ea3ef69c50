// Sessions that fail: refusals, connections that end, silence, floods, and proxies.
#include <netro/Localization.h>

#include "DnsTestKit.h"
#include "Environment.h"
#include "SmtpTestKit.h"
#include "mail/SmtpReply.h"

namespace netro {
namespace {

using std::chrono::minutes;

constexpr char kClosed[] =
    "Connection Reset by Peer. A connection was forcibly closed by the remote host.";
constexpr char kRefused[] =
    "Connection Refused. The target machine actively refused the attempt to connect to it.";

struct SmtpFailure : SmtpTest {};

TEST_F(SmtpFailure, ARefusalEndsTheSessionWithItsReply) {
  const std::pair<std::string, std::int32_t> kReplies[] = {{"554 no\r\n", 554},
                                                           {"451-later\r\n451 no\r\n", 451},
                                                           {"99  x\r\n", 99},
                                                           {"250-x\r\n  9 \r\n552 x\r\n", 552},
                                                           {"199 x", 199}};
  for (std::size_t place = 0; place < kDialogue.size(); ++place)
    for (const auto& [reply, code] : kReplies) {
      SCOPED_TRACE(kDialogue[place] + " " + reply);
      Renew();
      SmtpServer server(Except(kDialogue[place], reply));
      EXPECT_FALSE(Deliver(server));
      ExpectResult(kSteps[place], code, reply);
      EXPECT_EQ(smtp_->LastBuffer(), reply);
      const std::string shown = reply.ends_with("\n") ? reply.substr(0, reply.size() - 2) : reply;
      EXPECT_EQ(sink_.lines.back(), "[127.0.0.1] " + shown);
      const auto sent = kDialogue.begin() + 1;  // and nothing behind this place of the dialogue
      EXPECT_EQ(Joined(server.Commands()), Joined({sent, sent + static_cast<long>(place)}));
    }
}

TEST_F(SmtpFailure, TheTranscriptOfErrorsOnlyShowsTheWholeSession) {
  SmtpServer server(Except("RCPT TO:<to@you.test>", "550 no\r\n"));
  for (const ProtocolLevelEnum level : {pl_standard, pl_OnlyErrors}) {
    Renew();
    smtp_->ProtocolLevel(level);
    std::size_t atOnce = 0;  // lines that were shown when the server was asked
    sink_.onLine = [&](const std::string&) { atOnce += smtp_->StepID() == SMTP_STEP_NOERROR; };
    EXPECT_FALSE(Deliver(server));
    EXPECT_EQ(smtp_->Protocol(),
              "[127.0.0.1] 220 mx.test ready\r\n"
              "[me.test] HELO me.test\r\n[127.0.0.1] 250 ok\r\n"
              "[me.test] MAIL FROM:<from@me.test>\r\n[127.0.0.1] 250 ok\r\n"
              "[me.test] RCPT TO:<to@you.test>\r\n[127.0.0.1] 550 no");
    EXPECT_EQ(Joined(sink_.lines), smtp_->Protocol());
    EXPECT_EQ(atOnce, level == pl_standard ? 7u : 0u);
  }
}

TEST_F(SmtpFailure, ArgumentsThatWouldBreakTheProtocol) {
  SmtpServer server;
  const struct {
    std::string from, to, host, shown;
  } kCases[] = {
      {"a\rb@me.test", "to@you.test", "me.test", "a?b@me.test"},
      {"a@me.test>\nRCPT TO:<x", "to@you.test", "me.test", "a@me.test>?RCPT TO:<x"},
      {"a@me.test\0"s, "to@you.test", "me.test", "a@me.test?"},
      {"<a@me.test>", "to@you.test", "me.test", "<a@me.test>"},
      {"a@me.test", "to@you.test\r\nDATA", "me.test", "to@you.test??DATA"},
      {"a@me.test", "to@you.test\n", "me.test", "to@you.test?"},
      {"a@me.test", "\0"s, "me.test", "?"},
      {"a@me.test", "to@you.test> SIZE=1", "me.test", "to@you.test> SIZE=1"},
      {"a@me.test", "to@you.test", "me test", "me test"},
      {"a@me.test", "to@you.test", "me.test\r\nQUIT", "me.test??QUIT"},
      {"", "to@you.test", "me.test\n", "me.test?"},
      {"", "to@you.test", "\0"s, "?"},
  };
  smtp_->Port(server.Port());
  for (const auto& c : kCases) {
    smtp_->SenderHostName(c.host);
    EXPECT_FALSE(smtp_->SMTP(c.from, c.to, "text"));
    const std::string text = "Invalid eMail Address '" + c.shown + "'.";
    ExpectFailure(SMTP_STEP_PRECHECK, SMTP_INITERROR, text, text);
  }
  EXPECT_EQ(server.Connections(), 0u);
}

TEST_F(SmtpFailure, AConnectionThatCannotBeBegun) {
  DnsServer dns(Replying([](auto& reply) { reply.Code(3); }));
  const std::function<void()> kCases[] = {
      [&] { smtp_->ReceiverHostName("mx.test"); },
      [&] { smtp_->ReceiverHostName("a..b"); },
      [&] { smtp_->ReceiverHostName("\r\n"); },
      [&] { smtp_->Port(-1); },
      [&] { smtp_->Port(65'536); },
      [&] { smtp_->ProxyType(static_cast<SMTPProxyTypeEnum>(4)); },
      [&] { smtp_->ProxyType(SMTPProxySocks4); },
      [&] { UseProxy(1080, SMTPProxySocks4), smtp_->ProxyURL("mx.test"); },
      [&] { UseProxy(0, SMTPProxySocks4); },
  };
  for (const auto& change : kCases) {
    Renew();
    smtp_->DNSURL(UrlOf(dns));
    change();
    EXPECT_FALSE(Deliver());
    const std::string text = "Can not connect to host 'me.test'.";
    ExpectFailure(SMTP_STEP_INITSOCKET, SMTP_INITERROR, text, text);
  }
}

TEST_F(SmtpFailure, AConnectionThatTheNetworkRefuses) {
  const RefusingPort nobody;
  smtp_->Port(nobody.Port());
  for (const SMTPProxyTypeEnum type : {NoSMTPProxy, SMTPProxySocks4, SMTPProxySocks5NoAuth}) {
    UseProxy(nobody.Port(), type);
    EXPECT_FALSE(Deliver());
    ExpectFailure(SMTP_STEP_SOCKETERROR, 10061, kRefused, "[me.test] "s + kRefused);
  }
}

TEST_F(SmtpFailure, AServerThatIsGoneBeforeItsReplyIsComplete) {
  for (const After end : {After::Close, After::Reset})
    for (std::size_t place = 0; place < kDialogue.size(); ++place)
      for (const std::string& part : {""s, "25"s, "250"s, "250-ok\r\n"s, "250\r\n"s}) {
        if (end == After::Reset && !part.empty()) continue;  // it may go with the reset
        SCOPED_TRACE(kDialogue[place] + "|" + part);
        SmtpServer server(Except(kDialogue[place], {part, end}));
        EXPECT_FALSE(Deliver(server));
        ExpectResult(SMTP_STEP_SOCKETERROR, 10054, kClosed);
        EXPECT_EQ(smtp_->LastBuffer(), kClosed);
        EXPECT_TRUE(smtp_->Protocol().ends_with("\r\n[me.test] "s + kClosed) ||
                    smtp_->Protocol() == "[me.test] "s + kClosed);
      }
}

TEST_F(SmtpFailure, ACompleteReplyCountsBeforeTheClose) {
  for (std::size_t place = 0; place < kDialogue.size(); ++place) {
    SmtpServer server(Except(kDialogue[place], {"554 no", After::Close}));
    EXPECT_FALSE(Deliver(server));
    ExpectResult(kSteps[place], 554, "554 no");
  }
  SmtpServer server(Except("HELO me.test", {"250 ok\r\n", After::Close}));
  EXPECT_FALSE(Deliver(server));
  ExpectResult(SMTP_STEP_SOCKETERROR, 10054, kClosed);
  EXPECT_EQ(sink_.lines.back(), "[me.test] "s + kClosed);
}

// It is refused and hung up on while it is being sent.
TEST_F(SmtpFailure, AReplyInTheMiddleOfTheMessageCounts) {
  for (const bool reset : {false, true}) {
    LoopbackServer server([&](Connection& connection, std::size_t) {
      std::string got;
      AcceptUpToData(connection);
      connection.Read(got);
      connection.SendCut("552 too large\r\n", {14});  // it has read the first piece
      if (reset) return connection.Reset();
    });
    smtp_->Port(server.Port());
    EXPECT_FALSE(Deliver(std::string(64 << 20, 'x')));
    EXPECT_EQ(smtp_->StepID(), SMTP_STEP_SENDDATA);
    EXPECT_EQ(smtp_->Result(), 552);
    EXPECT_LT(sink_.progress.back().first, sink_.progress.back().second);
  }
}

TEST_F(SmtpFailure, FloodsAreCutOff) {
  std::string many;
  while (many.size() < 1'000'000) many += "250-x\r\n";
  const std::string kFloods[] = {many, std::string(1'000'000, 'x')};
  for (const std::string& flood : kFloods)
    for (std::size_t place = 0; place < 3; ++place) {
      Renew();
      LoopbackServer server([&](Connection& connection, std::size_t) {
        std::string got;
        for (std::size_t i = 0; i < place; ++i) {
          connection.Send(i == 0 ? "220 x\r\n" : "250 x\r\n");
          connection.Read(got);
        }
        while (connection.Send(flood)) continue;
      });
      smtp_->Port(server.Port());
      EXPECT_FALSE(Deliver());
      EXPECT_EQ(smtp_->StepID(), SMTP_STEP_SOCKETERROR);
      EXPECT_EQ(smtp_->Result(), 10040);
      EXPECT_EQ(smtp_->LastBuffer(), smtp_->ResultMessage());
      EXPECT_LT(smtp_->Protocol().size(), 2 * SmtpReply::kLargest);
    }
}

// A zone in which so much is left until midnight.
std::string ZoneBeforeMidnight(seconds left) {
  const auto now = std::chrono::floor<seconds>(SystemTime());
  const auto west =
      now - std::chrono::floor<std::chrono::days>(now) - (std::chrono::days(1) - left);
  const std::chrono::hh_mm_ss time(west);
  return "XXX" + std::string(time.is_negative() ? "-" : "") + std::to_string(time.hours().count()) +
         ":" + std::to_string(time.minutes().count()) + ":" +
         std::to_string(time.seconds().count());
}

// Other tests of the process have advanced the clock, and one runs at any time of the day.
constexpr std::chrono::hours kFarFromMidnight(12);

// A session with a server that says nothing in one place, and a clock that runs meanwhile.
struct SmtpSilence : SmtpFailure {
  bool DeliverInto(const std::string& command, const std::string& part = "",
                   milliseconds budget = minutes(10)) {
    SmtpServer server([&](const std::string& asked) -> Answer {
      if (asked != command) return SmtpServer::Politely(asked);
      silent_ = true;
      return {part, After::Stay};
    });
    silent_ = false;
    smtp_->Port(server.Port());
    const RunningClock clock([this] { return silent_.load(); }, budget);
    const TimePoint before = Now();
    const bool done = Deliver();
    waited_ = Now() - before;
    return done;
  }

  std::atomic<bool> silent_{false};
  TimePoint::duration waited_{};
};

TEST_F(SmtpSilence, EachStepHasItsTimeOut) {
  const TimeZone zone(ZoneBeforeMidnight(kFarFromMidnight).c_str());
  smtp_->SMTPTimeOutString("15:10,20:11,30:12,40:13,50:14,60:15,70:16");
  for (std::size_t place = 0; place < kDialogue.size(); ++place) {
    SCOPED_TRACE(kDialogue[place]);
    EXPECT_FALSE(DeliverInto(kDialogue[place]));
    const std::string name = smtp_->GetSMTPStepName(kSteps[place]);
    ExpectResult(kSteps[place], 99, "99 Timeout while '" + name + "'.");
    EXPECT_EQ(sink_.lines.back(), "[127.0.0.1] Timeout while '" + name + "'.");
    EXPECT_GT(waited_, seconds(9 + place));
    EXPECT_LT(waited_, seconds(11 + place));
  }
  smtp_->TotalTimeout(5);
  EXPECT_FALSE(DeliverInto(kDialogue[2]));
  EXPECT_EQ(smtp_->Result(), 99);
  EXPECT_LT(waited_, seconds(7));
}

TEST_F(SmtpSilence, WhatEndsNoReplyAndHowLongThatMayTake) {
  const TimeZone zone(ZoneBeforeMidnight(kFarFromMidnight).c_str());
  const struct {
    std::string part, table;
    int seconds;
  } kCases[] = {
      {"", "20:60", 60},
      {"", "15:2,120:3", 3},
      {"250\r\n", "", 60},
      {"250-x\r\n", "20:x", 60},
      {"000 x\r\n", "20:4294967297", 60},
      {"x\r\n2500 x", "20:2x", 2},
      {"", "20:0", 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.part + " " + c.table);
    smtp_->SMTPTimeOutString(c.table);
    EXPECT_FALSE(DeliverInto("HELO me.test", c.part));
    ExpectResult(SMTP_STEP_HELO, 99, "99 Timeout while 'Helo'.");
    EXPECT_GT(waited_, seconds(c.seconds - 1));
    EXPECT_LT(waited_, seconds(c.seconds + 1));
  }
}

TEST_F(SmtpSilence, ConnectingCountsForTheGreeting) {
  const TimeZone zone(ZoneBeforeMidnight(kFarFromMidnight).c_str());
  const HangingPort full;
  const RunningClock clock([] { return true; });
  smtp_->Port(full.Port());
  const Takes time(seconds(59), seconds(61));
  EXPECT_FALSE(Deliver());
  ExpectResult(SMTP_STEP_CONNECT, 99, "99 Timeout while 'Connect'.");
  EXPECT_EQ(smtp_->Protocol(), "[127.0.0.1] Timeout while 'Connect'.");
}

TEST_F(SmtpSilence, AWaitThatPassesMidnightEndsTenMinutesLater) {
  const std::pair<int, bool> kCases[] = {{10, false}, {18, false}, {21, true}, {60, true}};
  for (const auto& [timeOut, passes] : kCases) {
    const TimeZone zone(ZoneBeforeMidnight(seconds(20)).c_str());
    smtp_->SMTPTimeOutString("20:" + std::to_string(timeOut));
    EXPECT_FALSE(DeliverInto("HELO me.test", "", minutes(20)));
    EXPECT_EQ(smtp_->Result(), 99);
    const auto least = minutes(passes ? 10 : 0) + seconds(timeOut);
    EXPECT_GE(waited_, least - seconds(passes ? 0 : 1));
    EXPECT_LT(waited_, least + seconds(passes ? 2 : 1));
  }
}

struct SmtpProxyFailure : SmtpFailure {
  bool DeliverThrough(int port, SMTPProxyTypeEnum type = SMTPProxySocks5Auth) {
    UseProxy(port, type);
    return Deliver(server_);
  }

  SmtpServer server_;
};

TEST_F(SmtpProxyFailure, NoProxyGetsAServerNameWithControls) {
  SocksServer proxy;
  smtp_->ProxyUseRemoteDNS(true);
  EXPECT_TRUE(DeliverThrough(proxy.Port(), SMTPProxySocks5NoAuth)) << smtp_->ResultMessage();
  const std::size_t requests = proxy.Requests().size();
  smtp_->ReceiverHostName("mx\r\n.test");
  EXPECT_FALSE(smtp_->SMTP("me@xy.test", "you@xy.test", "x"));
  ExpectResult(SMTP_STEP_INITSOCKET, SMTP_INITERROR, "Can not connect to host 'me.test'.");
  EXPECT_EQ(proxy.Requests().size(), requests);
}

TEST_F(SmtpProxyFailure, Silence) {
  const TimeZone zone(ZoneBeforeMidnight(kFarFromMidnight).c_str());
  const SocksServer silent({.silentAt = 0});
  const HangingPort full;
  smtp_->SMTPProxyTimeout(7);
  for (const int port : {silent.Port(), full.Port()}) {
    const RunningClock clock([] { return true; });
    const Takes time(seconds(6), seconds(10));
    EXPECT_FALSE(DeliverThrough(port));
    ExpectFailure(SMTP_STEP_SOCKS, 10002, "Command Timed Out", "Command Timed Out");
  }
}

// What a proxy says before it was asked is no greeting.
TEST_F(SmtpProxyFailure, AProxyThatSpeaksFirst) {
  LoopbackServer proxy([](Connection& connection, std::size_t) {
    std::string got;
    connection.Send("220 mx.test ready\r\n");
    connection.Read(got);
    connection.Send("\x05\xFF");
    connection.ReadToEnd(got);
  });
  EXPECT_FALSE(DeliverThrough(proxy.Port()));
  EXPECT_EQ(smtp_->StepID(), SMTP_STEP_SOCKS);
}

}  // namespace
}  // namespace netro
