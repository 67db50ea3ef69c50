// What the tests of the mail session share: a client of a scripted server, and a sink.
#pragma once

#include <netro/SMTPCls.h>
#include <netro/testkit/SmtpServer.h>

#include "TestKit.h"

namespace netro {

using Answer = testkit::SmtpServer::Answer;
using After = testkit::SmtpServer::After;

/// Records each event; the hooks may then do anything.
struct SmtpSink : SMTPClsEvents {
  void DisplayProtocol(const std::string& LastResult) override {
    lines.push_back(LastResult);
    if (onLine) onLine(lines.back());
  }
  void DataStatus(std::int32_t SendBytes, std::int32_t CompleteBytes) override {
    progress.emplace_back(SendBytes, CompleteBytes);
    if (onData) onData();
  }

  std::vector<std::string> lines;
  std::vector<std::pair<std::int32_t, std::int32_t>> progress;
  std::function<void(std::string line)> onLine;
  std::function<void()> onData;
};

inline std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : "\r\n") + line;
  return text;
}

/// Answers one command with `answer` and the rest politely.
inline testkit::SmtpServer::Reply Except(std::string command, testkit::SmtpServer::Answer answer) {
  return [command = std::move(command), answer = std::move(answer)](const std::string& asked) {
    return asked == command ? answer : testkit::SmtpServer::Politely(asked);
  };
}

/// A server's side of a session up to the message.
inline void AcceptUpToData(testkit::Connection& connection) {
  for (const char* reply : {"220 x\r\n", "250 a\r\n", "250 b\r\n", "250 c\r\n", "354 d\r\n"}) {
    std::string got;
    if (reply[1] != '2') connection.Read(got);
    connection.Send(reply);
  }
}

/// The commands of a whole session of the fixture's client.
inline const std::vector<std::string> kDialogue = {
    "", "HELO me.test", "MAIL FROM:<from@me.test>", "RCPT TO:<to@you.test>", "DATA", ".", "QUIT"};
inline constexpr std::int32_t kSteps[] = {SMTP_STEP_CONNECT, SMTP_STEP_HELO, SMTP_STEP_MAILFROM,
                                          SMTP_STEP_RCPTTO,  SMTP_STEP_DATA, SMTP_STEP_SENDDATA,
                                          SMTP_STEP_QUIT};

struct SmtpTest : testing::Test {
  SmtpTest() { Renew(); }

  void Renew() {
    smtp_ = std::make_unique<SMTPCls>();
    smtp_->Events(&sink_);
    smtp_->SenderHostName("me.test");
    smtp_->ReceiverHostName("127.0.0.1");
    smtp_->ProtocolLevel(pl_standard);
    sink_ = SmtpSink();
  }

  bool Deliver(const std::string& data = "text\r\n") {
    return smtp_->SMTP("from@me.test", "to@you.test", data);
  }
  bool Deliver(const testkit::SmtpServer& server, const std::string& data = "text\r\n") {
    smtp_->Port(server.Port());
    return Deliver(data);
  }

  void ExpectResult(std::int32_t step, std::int32_t code, const std::string& message) {
    EXPECT_EQ(smtp_->StepID(), step);
    EXPECT_EQ(smtp_->Result(), code);
    EXPECT_EQ(smtp_->ResultMessage(), message);
  }
  /// The same; LastBuffer tells it as well, and this is the transcript.
  void ExpectFailure(std::int32_t step, std::int32_t code, const std::string& message,
                     const std::string& protocol) {
    ExpectResult(step, code, message);
    EXPECT_EQ(smtp_->LastBuffer(), message);
    EXPECT_EQ(smtp_->Protocol(), protocol);
  }
  void UseProxy(int port, SMTPProxyTypeEnum type) {
    smtp_->ProxyType(type);
    smtp_->ProxyURL("127.0.0.1");
    smtp_->ProxyPort(port);
    smtp_->ProxyUser("user");
    smtp_->ProxyPassword("secret");
  }
  void ExpectDone() { ExpectResult(SMTP_STEP_DONE, 0, "Success"); }

  SmtpSink sink_;
  std::unique_ptr<SMTPCls> smtp_;
};

}  // namespace netro
