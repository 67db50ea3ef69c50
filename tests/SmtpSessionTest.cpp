// Sessions that succeed: what goes over the wire, what the transcript and the events tell, replies
// in any pieces, and SOCKS proxies.

#include <gtest/gtest.h>
#include <netro/SMTPCls.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "SmtpTestKit.h"
#include "mail/SmtpReply.h"
#include "mail/SmtpTables.h"
#include "platform/HostInfo.h"
#include "tests/peers/SocksServer.h"

namespace netro {
namespace {

using namespace std::string_literals;
using peers::SmtpServer;
using peers::SocksRules;
using peers::SocksServer;
using Answer = SmtpServer::Answer;
using After = SmtpServer::After;

constexpr char kCommands[] =
    "[127.0.0.1] 220 mx.test ready\r\n"
    "[me.test] HELO me.test\r\n[127.0.0.1] 250 ok\r\n"
    "[me.test] MAIL FROM:<from@me.test>\r\n[127.0.0.1] 250 ok\r\n"
    "[me.test] RCPT TO:<to@you.test>\r\n[127.0.0.1] 250 ok\r\n";
constexpr char kData[] = "[me.test] DATA\r\n[127.0.0.1] 354 go ahead\r\n";
constexpr char kEnd[] = "[127.0.0.1] 250 ok\r\n[me.test] QUIT\r\n[127.0.0.1] 221 bye";

class SmtpSession : public SmtpTest {};

TEST_F(SmtpSession, DialogueAndTranscriptOfEachLevel) {
  const std::string data = "Subject: x\r\n\r\n.\r\n.x\r\nend\r\n";
  const std::string wire = "Subject: x\r\n\r\n..\r\n.x\r\nend\r\n\r\n.\r\n";
  const struct {
    ProtocolLevelEnum level;
    std::string protocol;
  } kCases[] = {
      {pl_Off, ""},
      {pl_standard, kCommands + std::string(kData) + "[me.test] { Sending " +
                        std::to_string(wire.size()) + " Bytes Data ... }\r\n" + kEnd},
      {pl_WithCompleteData, kCommands + std::string(kData) + "[me.test] " + wire + kEnd},
      {pl_OnlyErrors, ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.level);
    Renew();
    SmtpServer server;
    smtp_->ProtocolLevel(c.level);
    EXPECT_TRUE(Deliver(server, data));
    EXPECT_EQ(Joined(server.Commands()), Joined({kDialogue.begin() + 1, kDialogue.end()}));
    EXPECT_EQ(Joined(server.Messages()), wire);
    EXPECT_EQ(smtp_->Protocol(), c.protocol);
    EXPECT_EQ(Joined(sink_.lines), c.protocol);
    EXPECT_EQ(smtp_->LastBuffer(), "221 bye\r\n");
    ExpectDone();
  }
}

TEST_F(SmtpSession, ASimulationDeliversNothing) {
  SmtpServer server;
  smtp_->Simulation(true);
  EXPECT_TRUE(Deliver(server));
  EXPECT_EQ(Joined(server.Commands()),
            "HELO me.test\r\nMAIL FROM:<from@me.test>\r\nRCPT TO:<to@you.test>\r\nQUIT");
  EXPECT_EQ(smtp_->Protocol(), kCommands + "[me.test] QUIT\r\n[127.0.0.1] 221 bye"s);
  EXPECT_TRUE(sink_.progress.empty());
  ExpectDone();
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
  peers::LoopbackServer server([&](peers::Connection& connection, std::size_t) {
    std::string got;
    connection.Send("220 x\r\n");
    for (const char* reply : {"250 a\r\n", "250 b\r\n", "250 c\r\n", "354 d\r\n"}) {
      got.clear();
      connection.Read(got);
      connection.Send(reply);
    }
    while (connection.Read(message)) {
    }
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
    std::vector<std::pair<std::int32_t, std::int32_t>> expected;
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

// What is left of a line taken early is no part of the next reply.
TEST(SmtpReplies, TheRestOfAReplyIsDropped) {
  const struct {
    std::string first, second, text;
    std::int32_t code;
  } kCases[] = {
      {"220 x\r\n", "550 no\r\n", "550 no\r\n", 550},
      {"220 x\r", "\n550 no\r\n", "550 no\r\n", 550},
      {"220 x", "\r\n550 no\r\n", "550 no\r\n", 550},
      {"220 ", "1st reply\r\n550 no\r\n", "550 no\r\n", 550},
      {"220 ", "xyz 5\r\n", "", 0},
      {"220 ", "1st reply", "1st reply", 0},
      {"220 x", "550 no\r\n", "550 no\r\n", 550},  // a server without line ends
      {"220 x", "550-no\r\n550 no", "550-no\r\n550 no", 550},
      {"220 x\r\n25", "0 y\r\n550 no\r\n", "550 no\r\n", 550},
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

TEST(SmtpReplies, WhatEndsAReply) {
  const std::pair<std::string, std::int32_t> kCases[] = {
      {"", 0},
      {"250", 0},
      {"250\r\n", 0},
      {"250 ", 250},
      {"250 O", 250},
      {"250-x\r\n", 0},
      {"250-x\r\n250 ", 250},
      {"2500 x\r\n", 0},
      {"000 x\r\n", 0},
      {"abc x\r\n", 0},
      {"-50 x\r\n", 0},
      {" 50 x\r\n", 0},
      {"25a x\r\n", 25},
      {"5   x\r\n", 5},
      {"25\r\n x", 0},
      {"2\r\n 250 x", 0},
      {"x\n250 y", 0},
      {"250\tx\r\n", 0},
      {"\0\0\0 x"s, 0},
      {"250-\r\n\r\n\r\n354 x", 354},
      {"250\r 1\r\n", 0},
      {"2\r\n\r\n51  \r\n", 51},
  };
  for (const auto& [bytes, code] : kCases)
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
      std::string text;
      SmtpReply reply(text);
      EXPECT_TRUE(reply.Add(bytes.substr(0, cut)));
      EXPECT_TRUE(reply.Add(bytes.substr(cut)));
      EXPECT_EQ(reply.Code(), code) << bytes << " cut at " << cut;
      EXPECT_EQ(text, bytes);
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
  const std::pair<std::int32_t, const char*> kCases[] = {
      {0, "Undefined"},
      {1, ""},
      {5, "SOCKSProlog"},
      {20, "Helo"},
      {92, "Data Chunk"},
      {99, "Timeout"},
      {9999, ""},
      {std::numeric_limits<std::int32_t>::max(), ""},
      {std::numeric_limits<std::int32_t>::max() - 7200, ""},
      {std::numeric_limits<std::int32_t>::min(), ""}};
  for (const auto& [step, name] : kCases) EXPECT_EQ(smtp_->GetSMTPStepName(step), name) << step;
}

TEST(SmtpTables, TimeOuts) {
  const struct {
    std::string table;
    std::int32_t step;
    double seconds;
  } kCases[] = {
      {"15:0.25,20:1.5", 15, 0.25},
      {"15:7.0625x", 15, 7.062},
      {"15:60,20:30", 20, 30},
      {"15:60,20:30", 15, 60},
      {"15:5,15:7", 15, 5},
      {"115:5,15:7", 15, 5},
      {"", 15, 60},
      {"15:", 15, 60},
      {"15:x,15:9", 15, 60},
      {"15: 9", 15, 60},
      {"15:-9", 15, 60},
      {"15:9x", 15, 9},
      {"15:0", 15, 0},
      {"15:2147483647", 15, 2'147'483'647},
      {"15:2147483648", 15, 60},
      {"15:99999999999999999999", 15, 60},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(std::chrono::duration<double>(StepTimeOut(c.table, c.step)).count(), c.seconds)
        << c.table;
  }
}

TEST(SmtpTables, Membership) {
  const struct {
    std::string list, item;
    bool found;
  } kCases[] = {
      {"15:220,20:250", "15:220", true},
      {"15:220,20:250", "5:220", false},
      {"15:220,20:250", "15:22", false},
      {"15:220, 20:250", "20:250", false},
      {"com,Net,org", "nEt", true},
      {"com,net,org", "com,net", true},
      {"com", "com", true},
      {"", "com", false},
      {"", "", true},
      {"com", "", false},
  };
  for (const auto& c : kCases) EXPECT_EQ(IsInList(c.list, c.item), c.found) << c.list << c.item;
  EXPECT_TRUE(IsInList("a b", "B", ' '));
  EXPECT_TRUE(HasStepEntry("40:504,40:451", 40, 451));
  EXPECT_FALSE(HasStepEntry("40:504,40:451", 0, 451));
}

TEST_F(SmtpSession, GatewayOfATranscript) {
  const struct {
    std::string protocol, name, ip;
  } kCases[] = {
      {"", "", ""},
      {"[DNS 10.0.0.1:53] mx.test => 192.0.2.1", "mx.test", "192.0.2.1"},
      {"[DNS a:53] Command Timed Out\r\n[DNS b:53] mx.test => 192.0.2.1\r\n[mx.test] 220 x\r\n",
       "mx.test", "192.0.2.1"},
      {"[DNS a] mx.test => ", "mx.test", ""},
      {"[mx.test] 220 a => b\r\nx [DNS a] a => b\r\n[DNS a => b\r\n[DNS a] b", "", ""},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(smtp_->GetGateWayNameFromProtocol(c.protocol), c.name);
    EXPECT_EQ(smtp_->GetGatewayIPFromProtocol(c.protocol), c.ip);
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

class SmtpSocks : public SmtpTest {
 protected:
  bool DeliverThrough(const SocksServer& proxy, SMTPProxyTypeEnum type) {
    return DeliverThrough(proxy, type, server_);
  }
  bool DeliverThrough(const SocksServer& proxy, SMTPProxyTypeEnum type, const SmtpServer& server) {
    smtp_->ProxyType(type);
    smtp_->ProxyURL("127.0.0.1");
    smtp_->ProxyPort(proxy.Port());
    smtp_->ProxyUser("user");
    smtp_->ProxyPassword("secret");
    return Deliver(server);
  }

  SmtpServer server_;
};

TEST_F(SmtpSocks, EachKind) {
  SocksRules rules;
  rules.user = "user";
  rules.password = "secret";
  for (const auto type : {SMTPProxySocks4, SMTPProxySocks5NoAuth, SMTPProxySocks5Auth}) {
    SCOPED_TRACE(type);
    Renew();
    rules.method = type == SMTPProxySocks5Auth ? 2 : 0;
    SocksServer proxy(rules);
    const bool remoteNames = type != SMTPProxySocks4;
    smtp_->ProxyUseRemoteDNS(remoteNames);
    if (remoteNames) smtp_->ReceiverHostName("mx.test");
    EXPECT_TRUE(DeliverThrough(proxy, type)) << smtp_->ResultMessage();
    EXPECT_EQ(proxy.Requests().back().find("mx.test") != std::string::npos, remoteNames);
    EXPECT_EQ(sink_.lines[0], "[Proxy SOCKS 127.0.0.1:" + std::to_string(proxy.Port()) + "] OK");
    EXPECT_EQ(sink_.lines[1], "[" + smtp_->ReceiverHostName() + "] 220 mx.test ready");
    EXPECT_EQ(smtp_->Protocol().find("secret"), std::string::npos);
    ExpectDone();
  }
}

TEST_F(SmtpSocks, TheGreetingMayComeWithTheProxysReply) {
  SmtpServer silent(Except("", ""));
  SocksRules rules;
  rules.early = "220 early\r\n";
  for (std::size_t cut = 1; cut < 20; ++cut) {
    rules.cuts = {cut};
    SocksServer proxy(rules);
    EXPECT_TRUE(DeliverThrough(proxy, SMTPProxySocks5NoAuth, silent)) << smtp_->ResultMessage();
    EXPECT_EQ(sink_.lines[1], "[127.0.0.1] 220 early");
  }
}

}  // namespace
}  // namespace netro
