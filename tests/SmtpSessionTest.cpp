// Sessions that succeed: the wire, the transcript, the events, replies in pieces; and how the
// caller ends one in its events and at any moment. The waits are in ServerCallsTest.
#include <future>
#include <limits>

#include "SmtpTestKit.h"
#include "mail/SmtpReply.h"
#include "mail/SmtpTables.h"
#include "platform/HostInfo.h"

namespace netro {
namespace {

constexpr char kCommands[] =
    "[127.0.0.1] 220 mx.test ready\r\n"
    "[me.test] HELO me.test\r\n[127.0.0.1] 250 ok\r\n"
    "[me.test] MAIL FROM:<from@me.test>\r\n[127.0.0.1] 250 ok\r\n"
    "[me.test] RCPT TO:<to@you.test>\r\n[127.0.0.1] 250 ok\r\n";
constexpr char kData[] = "[me.test] DATA\r\n[127.0.0.1] 354 go ahead\r\n";
constexpr char kEnd[] = "[127.0.0.1] 250 ok\r\n[me.test] QUIT\r\n[127.0.0.1] 221 bye";

struct SmtpSession : SmtpTest {};

TEST_F(SmtpSession, DialogueAndTranscriptOfEachLevel) {
  const std::string data = "Subject: x\r\n\r\n.\r\n.x\r\nend\r\n";
  const std::string wire = "Subject: x\r\n\r\n..\r\n.x\r\nend\r\n\r\n.\r\n";
  const struct {
    ProtocolLevelEnum level;
    std::string protocol;
    bool simulation = false;
  } kCases[] = {
      {pl_Off, ""},
      {pl_standard, kCommands + std::string(kData) + "[me.test] { Sending " +
                        std::to_string(wire.size()) + " Bytes Data ... }\r\n" + kEnd},
      {pl_WithCompleteData, kCommands + std::string(kData) + "[me.test] " + wire + kEnd},
      {pl_OnlyErrors, ""},
      {pl_standard, kCommands + "[me.test] QUIT\r\n[127.0.0.1] 221 bye"s, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.level);
    Renew();
    SmtpServer server;
    smtp_->ProtocolLevel(c.level);
    smtp_->Simulation(c.simulation);
    EXPECT_TRUE(Deliver(server, data));
    const std::string before =
        "HELO me.test\r\nMAIL FROM:<from@me.test>\r\nRCPT TO:<to@you.test>\r\n";
    EXPECT_EQ(Joined(server.Commands()), before + (c.simulation ? "QUIT" : "DATA\r\n.\r\nQUIT"));
    EXPECT_EQ(Joined(server.Messages()), c.simulation ? "" : wire);
    EXPECT_EQ(sink_.progress.empty(), c.simulation);
    EXPECT_EQ(smtp_->Protocol(), c.protocol);
    EXPECT_EQ(Joined(sink_.lines), c.protocol);
    EXPECT_EQ(smtp_->LastBuffer(), "221 bye\r\n");
    ExpectDone();
  }
}

TEST_F(SmtpSession, ASenderWithoutNameOrAddressHasTheComputersName) {
  SmtpServer server;
  smtp_->SenderHostName("");
  smtp_->Port(server.Port());
  EXPECT_TRUE(smtp_->SMTP("", "to@you.test", ""));
  const std::string name = ReadHostName();
  EXPECT_EQ(smtp_->SenderHostName(), name);
  EXPECT_EQ(server.Commands()[0], "HELO " + name);
  EXPECT_EQ(server.Commands()[1], "MAIL FROM:<admin@" + name + ">");
  EXPECT_EQ(sink_.lines[1], "[" + name + "] HELO " + name);
}

TEST_F(SmtpSession, LoneDotsAnywhereInALargeMessage) {
  std::string data;
  std::string wire;
  for (std::size_t i = 0; data.size() < 400'000; ++i) {
    const bool dot = i * i % 7 < 3;
    data += dot ? ".\r\n" : std::string(i * 31 % 501, 'x') + "\r\n";
    wire += dot ? "..\r\n" : std::string(i * 31 % 501, 'x') + "\r\n";
  }
  SmtpServer server;
  EXPECT_TRUE(Deliver(server, data));
  EXPECT_TRUE(server.Messages() == std::vector{wire + "\r\n.\r\n"});
  EXPECT_EQ(sink_.progress.back().first, wire.size() + 5);
}

// Nothing goes ahead of what the events tell.
TEST_F(SmtpSession, DataStatusTellsWhatWasSent) {
  std::string message;
  std::promise<void> ended;
  LoopbackServer server([&](Connection& connection, std::size_t) {
    AcceptUpToData(connection);
    while (connection.Read(message)) continue;
    ended.set_value();
  });
  sink_.onData = [&] { smtp_->StopWaiting(); };
  smtp_->Port(server.Port());
  EXPECT_FALSE(Deliver(std::string(100'000, 'x')));
  EXPECT_EQ(sink_.progress.size(), 1u);
  ended.get_future().wait_for(std::chrono::seconds(5));
  EXPECT_EQ(message.size(), 4'096u);
}

TEST_F(SmtpSession, DataStatusAfterEachChunk) {
  SmtpServer server;
  for (const std::size_t size : {0U, 4'091U, 4'092U, 8'187U, 61'435U, 61'436U}) {
    sink_.progress.clear();
    EXPECT_TRUE(Deliver(server, std::string(size, 'x')));
    const auto all = static_cast<std::int32_t>(size + 5);
    decltype(sink_.progress) expected;
    for (std::int32_t sum = 4'096; sum < all; sum += 4'096) expected.emplace_back(sum, all);
    expected.emplace_back(all, all);
    EXPECT_EQ(sink_.progress, expected);
  }
}

TEST_F(SmtpSession, RepliesThatLetItGoOn) {
  const std::pair<std::string, Answer> kCases[] = {
      {"", "220-mx.test\r\n220-250 ready\r\n220 now\r\n"},
      {"HELO me.test", "220 ok\r\n"},
      {"HELO me.test", "250-mx.test\r\n250-SIZE\r\n250 HELP\r\n"},
      {"DATA", "250 go ahead\r\n"},
      {"QUIT", "250 bye\r\n"},
      {"QUIT", "550 stay\r\n"},
      {"QUIT", {"221 bye\r\n", After::GoOn}},
      {"QUIT", {"221 bye\r\n", After::Reset}},
      {"HELO me.test", "250 O"},  // a line end may be missing
      {"", "220 mx.test"},
      {".", "\r\n\r\nok\r\n250 ok\r\n"},
      {"RCPT TO:<to@you.test>", "550-no\r\n250 yes\r\n551 no\r\n"},
  };
  for (const auto& [command, answer] : kCases) {
    SmtpServer server(Except(command, answer));
    EXPECT_TRUE(Deliver(server)) << answer.bytes << smtp_->ResultMessage();
    EXPECT_EQ(server.Commands().back(), "QUIT");
    ExpectDone();
  }
}

TEST_F(SmtpSession, TheSuccessTableDecides) {
  smtp_->SMTPSuccess("15:554,20:2,30:250,40:250,70:1");
  smtp_->Simulation(true);
  SmtpServer server([](const std::string& command) -> Answer {
    if (command.empty()) return "554 go away\r\n";
    if (command[0] == 'H') return "002 x\r\n";
    return command == "QUIT" ? "1st x\r\n" : "250 ok\r\n";
  });
  EXPECT_TRUE(Deliver(server)) << smtp_->ResultMessage();
}

// What is left of a line taken early is no part of the next reply. What ends one, the fuzz target
// tells.
TEST(SmtpReplies, TheRestOfAReplyIsDropped) {
  const std::string no = "550 no\r\n";
  const struct {
    std::string first, second, text;
    std::int32_t code;
  } kCases[] = {
      {"220 x\r\n", no, no, 550},
      {"220 x\r", "\n" + no, no, 550},
      {"220 x", "\r\n" + no, no, 550},
      {"220 ", "1st reply\r\n" + no, no, 550},
      {"220 ", "xyz 5\r\n", "", 0},
      {"220 ", "1st reply", "1st reply", 0},
      {"220 x", no, no, 550},  // a server without line ends
      {"220 x", "550-no\r\n550 no", "550-no\r\n550 no", 550},
      {"220 x\r\n25", "0 y\r\n" + no, no, 550},
      {"220 x", "55", "55", 0},
  };
  for (const auto& c : kCases)
    for (std::size_t cut = 0; cut <= c.second.size(); ++cut) {
      SCOPED_TRACE(c.first + " | " + c.second + " " + std::to_string(cut));
      std::string text;
      SmtpReply reply(text);
      reply.Begin();
      EXPECT_TRUE(reply.Add(c.first));
      EXPECT_EQ(reply.Code(), 220);
      reply.Begin();
      EXPECT_EQ(reply.Code(), 0);
      EXPECT_EQ(text, "");
      EXPECT_TRUE(reply.Add(c.second.substr(0, cut)));
      EXPECT_TRUE(reply.Add(c.second.substr(cut)));
      EXPECT_EQ(reply.Code(), c.code);
      EXPECT_EQ(text, c.text);
    }
}

TEST(SmtpReplies, AReplyOfOneMiBAtMost) {
  std::string text;
  SmtpReply reply(text);
  EXPECT_TRUE(reply.Add(std::string(SmtpReply::kLargest - 10, 'x')));
  EXPECT_TRUE(reply.Add("\r\n250 ok\r\n"));
  EXPECT_EQ(reply.Code(), 250);
  EXPECT_FALSE(reply.Add("x"));
  EXPECT_EQ(text.size(), SmtpReply::kLargest);
}

TEST_F(SmtpSession, StepNames) {
  constexpr auto kMost = std::numeric_limits<std::int32_t>::max();
  const std::pair<std::int32_t, const char*> kCases[] = {
      {0, "Undefined"},   {1, ""},    {5, "SOCKSProlog"}, {20, "Helo"},       {99, "Timeout"},
      {92, "Data Chunk"}, {9999, ""}, {kMost, ""},        {kMost - 7200, ""}, {-kMost - 1, ""}};
  for (const auto& [step, name] : kCases) EXPECT_EQ(smtp_->GetSMTPStepName(step), name) << step;
}

TEST(SmtpTables, TimeOuts) {
  const auto seconds = [](const char* table, std::int32_t step) {
    return std::chrono::duration<double>(StepTimeOut(table, step)).count();
  };
  EXPECT_EQ(seconds("15:0.25,20:1.5", 15), 0.25);
  EXPECT_EQ(seconds("15:7.0625x", 15), 7.062);
  EXPECT_EQ(seconds("115:5,15:7,15:9", 15), 5);
  EXPECT_EQ(seconds("15:0", 15), 0);
  EXPECT_EQ(seconds("15:2147483647", 15), 2'147'483'647);
  EXPECT_EQ(seconds("15:60,20:30", 20), 30);
  for (const char* none :
       {"", "15:", "15:x,15:9", "15: 9", "15:-9", "15:2147483648", "15:99999999999999999999"})
    EXPECT_EQ(seconds(none, 15), 60) << none;
}

TEST(SmtpTables, Membership) {
  const char *codes = "15:220,20:250", *names = "com,Net,org";
  for (const char* item : {"15:220", "15:220,20:250"}) EXPECT_TRUE(IsInList(codes, item)) << item;
  for (const char* item : {"5:220", "15:22", ""}) EXPECT_FALSE(IsInList(codes, item)) << item;
  for (const char* item : {"nEt", "com,net", "ORG"}) EXPECT_TRUE(IsInList(names, item)) << item;
  EXPECT_TRUE(IsInList("com", "com"));
  EXPECT_TRUE(IsInList("", ""));
  EXPECT_FALSE(IsInList("", "com"));
  EXPECT_FALSE(IsInList("15:220, 20:250", "20:250"));
  EXPECT_TRUE(IsInList("a b", "B", ' '));
  EXPECT_TRUE(HasStepEntry("40:504,40:451", 40, 451));
  EXPECT_FALSE(HasStepEntry("40:504,40:451", 0, 451));
}

TEST_F(SmtpSession, GatewayOfATranscript) {
  const std::tuple<std::string, std::string, std::string> kCases[] = {
      {"", "", ""},
      {"[DNS 10.0.0.1:53] mx.test => 192.0.2.1", "mx.test", "192.0.2.1"},
      {"[DNS a:53] Command Timed Out\r\n[DNS b:53] mx.test => 192.0.2.1\r\n[mx.test] 220 x\r\n",
       "mx.test", "192.0.2.1"},
      {"[DNS a] mx.test => ", "mx.test", ""},
      {"[mx.test] 220 a => b\r\nx [DNS a] a => b\r\n[DNS a => b\r\n[DNS a] b", "", ""},
  };
  for (const auto& [protocol, name, ip] : kCases) {
    EXPECT_EQ(smtp_->GetGateWayNameFromProtocol(protocol), name);
    EXPECT_EQ(smtp_->GetGatewayIPFromProtocol(protocol), ip);
  }
}

TEST_F(SmtpSession, OtherObjectsMayWorkInTheEvents) {
  SmtpServer server;
  std::size_t inner = 0;
  const auto deliverAnother = [&] {  // the sessions nest: its reply may arrive meanwhile
    SMTPCls other;
    other.ReceiverHostName("127.0.0.1");
    other.Port(server.Port());
    inner += other.SMTP("a@b.test", "c@d.test", "inner") ? 1 : 0;
  };
  sink_.onLine = [&](const std::string&) { deliverAnother(); };
  sink_.onData = deliverAnother;
  EXPECT_TRUE(Deliver(server));
  ExpectDone();
  EXPECT_EQ(inner, sink_.lines.size() + sink_.progress.size());
}

// What an event changes counts for the next session.
TEST_F(SmtpSession, ASessionWorksOnCopies) {
  SmtpServer server;
  auto from = std::make_unique<std::string>("from@me.test");
  auto to = std::make_unique<std::string>("to@you.test");
  sink_.onLine = [&](const std::string&) {
    smtp_->SMTPSuccess("");
    smtp_->SenderHostName("other.test");
    smtp_->ReceiverHostName("");
    smtp_->Simulation(true);
    smtp_->ProtocolLevel(pl_Off);
    from.reset();
    to.reset();
  };
  smtp_->Port(server.Port());
  EXPECT_TRUE(smtp_->SMTP(*from, *to, "text"));
  EXPECT_EQ(Joined(server.Commands()), Joined({kDialogue.begin() + 1, kDialogue.end()}));
  EXPECT_EQ(smtp_->SenderHostName(), "other.test");
}

TEST_F(SmtpSession, TheGreetingMayComeWithTheProxysReply) {
  SmtpServer silent(Except("", ""));
  for (std::size_t cut = 1; cut < 20; ++cut) {
    SocksServer proxy({.cuts = {cut}, .early = "220 early\r\n"});
    UseProxy(proxy.Port(), SMTPProxySocks5NoAuth);
    EXPECT_TRUE(Deliver(silent)) << smtp_->ResultMessage();
    EXPECT_EQ(sink_.lines[1], "[127.0.0.1] 220 early");
  }
}

struct EndOfSmtp : SmtpTest {};

// Inside each line of a session and each progress.
TEST_F(EndOfSmtp, InEachEvent) {
  const std::string data(20'000, 'x');
  for (const bool deletes : {false, true})
    for (std::size_t number = 0;; ++number) {
      SCOPED_TRACE(number);
      Renew();
      SmtpServer server;
      std::size_t events = 0;
      const auto end = [&] {
        if (events++ == number) deletes ? smtp_.reset() : smtp_->StopWaiting();
      };
      sink_.onLine = [&](const std::string&) { end(); };
      sink_.onData = end;
      const bool done = Deliver(server, data);
      if (events <= number) break;
      if (smtp_ == nullptr) {
        EXPECT_EQ(events, number + 1);
      } else if (!done) {
        EXPECT_EQ(smtp_->Result(), 9999);
      }
      // No message by halves: all of it was told to be sent, or its reply has come.
      const bool whole = sink_.progress.size() > 4 || sink_.lines.size() > 10;
      EXPECT_LE(server.Messages().size(), whole ? 1u : 0u);
      // After the server has accepted everything nothing is left to be ended.
      EXPECT_EQ(done, sink_.lines.back() == "[127.0.0.1] 221 bye");
    }
}

// A thread that stops a session between two blocks of a message that flows.
TEST_F(EndOfSmtp, WithinTenMilliseconds) {
  SmtpServer server;
  const std::string much(64 << 20, 'x');
  auto fastest = TimePoint::duration::max();
  for (int i = 0; i < 50 && fastest > milliseconds(10); ++i) {  // others may hold the processor
    std::atomic<bool> flows = false;
    std::atomic<TimePoint::rep> stopped = 0;
    sink_.onData = [&] { flows = true; };
    std::thread stopper([&] {
      while (!flows) std::this_thread::yield();
      stopped = Now().time_since_epoch().count();
      smtp_->StopWaiting();
    });
    EXPECT_FALSE(Deliver(server, much));
    fastest = std::min(fastest, Now().time_since_epoch() - TimePoint::duration(stopped.load()));
    stopper.join();
    ExpectResult(SMTP_STEP_SENDDATA, 9999, "Canceled while 'SendData'.");
  }
  EXPECT_LT(fastest, milliseconds(10));
}

}  // namespace
}  // namespace netro
