// What a watcher does about changes: programs, mails and webhooks, with peers that fail.
#include <netro/testkit/SmtpServer.h>

#include "TestKit.h"
#include "diag/WatchReportText.h"
#include "diag/WatchReports.h"

namespace netro {
namespace {

WatchReport About(const std::string& name, WatchReport::Kind kind = WatchReport::Down) {
  WatchReport report;
  report.kind = kind;
  report.facts = {"here", name, "http://u:p@" + name + "/", "it broke"};
  report.date = WallClock();
  return report;
}

struct WatchReporting : testing::Test {
  WatchReporting() { settings.groupSeconds = 0; }
  ~WatchReporting() override { reports->GiveUp(); }

  void Configure() { reports->Configure(settings, nullptr); }
  void Renew() { reports = std::make_unique<WatchReports>(note); }
  void Report(const WatchReport& report) const {
    std::size_t done = 0;
    reports->Report(report, done);
  }
  void UseMail(int port) {
    settings.mailServer = "127.0.0.1:" + std::to_string(port);
    settings.sender = "watch@me.test";
    settings.recipients = "a@xy.test";
    settings.downSubject = settings.downActionMsg = "Name$ down";
    settings.downActions = {{WatchAction::Mail, {}, {}}};
    Configure();
  }
  // What waits goes by way of the text that a state file has.
  void RestartReports() {
    const std::vector<WatchWaiting> waiting = reports->Waiting();
    reports->GiveUp();
    EXPECT_TRUE(reports->Waiting().empty());
    for (const WatchWaiting& one : waiting)
      reports->Recall({one.kind, SplitFields(JoinFields(one.fields)).value()});
    reports->Tick();
  }
  static bool Until(const std::function<bool()>& done) {
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (!done()) {
      if (std::chrono::steady_clock::now() > limit) return false;
      MessageLoop::ForThisThread().Sleep(1ms);
    }
    return true;
  }
  bool IsTold(const std::string& text) const {
    return std::ranges::any_of(
        notes, [&](const std::string& told) { return told.find(text) != told.npos; });
  }

  TemporaryFolder folder;
  WatchSettings settings;
  std::vector<std::string> notes;
  const WatchNotes note = [this](std::int32_t, const char*, const WatchFacts&,
                                 const std::string& text) { notes.push_back(text); };
  std::unique_ptr<WatchReports> reports = std::make_unique<WatchReports>(note);
};

std::size_t Children() {
  const std::string ids = ReadFile("/proc/thread-self/children");
  return static_cast<std::size_t>(std::ranges::count(ids, ' '));
}

TEST_F(WatchReporting, ManyProgramsRunAFewAtATime) {
  constexpr int kHosts = 100;
  settings.downActions = {{WatchAction::Run, "touch", {folder / "Name$"}}};
  Configure();
  for (int i = 0; i < kHosts; ++i) Report(About("h" + std::to_string(i)));
  EXPECT_EQ(Children(), 0u) << "none while it is reported";
  RestartReports();
  const auto started = [&] {
    EXPECT_LE(Children(), 16u);
    return std::distance(std::filesystem::directory_iterator(folder.Path()), {});
  };
  EXPECT_TRUE(Until([&] { return started() == kHosts; }));
  EXPECT_TRUE(Until([] { return Children() == 0; })) << "no zombie";
  EXPECT_TRUE(notes.empty());
}

TEST_F(WatchReporting, AProgramThatDoesNotEndIsEnded) {
  settings.programTimeout = 5;
  settings.downActions = {{WatchAction::Run, "sleep", {"1000"}}};
  Configure();
  for (int i = 0; i < 20; ++i) Report(About("h"));
  EXPECT_TRUE(Until([] { return Children() == 16; }));
  reports.reset();  // which does not end the limits
  Renew();
  const auto pass = [] {
    AdvanceClockForTests(1s);
    return Children() == 0;
  };
  EXPECT_TRUE(Until(pass));
  Configure();
  Report(About("h"));
  EXPECT_TRUE(Until([] { return Children() == 1; }));
  AdvanceClockForTests(6s);
  EXPECT_TRUE(Until([&] { return IsTold("'sleep' was ended: it took more than 5 seconds."); }));
  EXPECT_TRUE(Until([] { return Children() == 0; }));
}

TEST_F(WatchReporting, AMailThatIsPutOffIsSentLater) {
  std::atomic<bool> knows{false};
  SmtpServer server([&](const std::string& command) -> SmtpServer::Answer {
    if (command.starts_with("RCPT") && !knows) return "450 greylisted\r\n";
    return SmtpServer::Politely(command);
  });
  settings.groupSeconds = 5;
  UseMail(server.Port());
  Report(About("one"));
  Report(About("two"));
  Report(About("three", WatchReport::Unreachable));
  EXPECT_EQ(reports->MailsWaiting(), 1);
  RestartReports();
  AdvanceClockForTests(6s);
  EXPECT_TRUE(Until([&] { return reports->Untried() == 0; }));
  EXPECT_TRUE(IsTold("3 reports (2 down, 1 unreachable)': a@xy.test: 450 greylisted. It will"));
  knows = true;
  reports.reset();  // and so it goes on by itself
  Renew();
  AdvanceClockForTests(61s);
  EXPECT_TRUE(Until([&] { return server.Messages().size() == 1; }));
  for (const char* text : {"one down", "two down", "three is unreachable"})
    EXPECT_NE(server.Messages()[0].find(text), std::string::npos) << text;
}

TEST_F(WatchReporting, ASilentServerHoldsNoOtherMail) {
  std::atomic<int> greetings{0};
  SmtpServer server([&](const std::string& command) -> SmtpServer::Answer {
    if (command.empty() && greetings++ == 0) return {"", SmtpServer::After::Stay};
    return SmtpServer::Politely(command);
  });
  UseMail(server.Port());
  Report(About("first"));
  EXPECT_TRUE(Until([&] { return greetings == 1; }));
  Report(About("second"));
  EXPECT_TRUE(Until([&] { return server.Messages().size() == 1; }));
  EXPECT_NE(server.Messages()[0].find("second down"), std::string::npos);
  reports->GiveUp();
  EXPECT_EQ(reports->MailsWaiting(), 0);
}

TEST_F(WatchReporting, MailsInAFolderOutliveTheProgram) {
  SmtpServer server;
  UseMail(server.Port());
  settings.spoolFolder = folder / "spool";
  settings.mailServer = "127.0.0.1:1";  // nobody
  settings.recipients = "a@xy.test, b@, c@xy.test";
  Configure();
  Report(About("one"));
  EXPECT_TRUE(Until([&] { return reports->Untried() == 0 && reports->MailsWaiting() == 2; }));
  EXPECT_TRUE(IsTold("b@")) << "the others shall get it all the same";
  reports->GiveUp();
  EXPECT_EQ(reports->MailsWaiting(), 0);

  Renew();
  settings.mailServer = "127.0.0.1:" + std::to_string(server.Port());
  Configure();
  EXPECT_EQ(reports->MailsWaiting(), 2);
  AdvanceClockForTests(61s);
  EXPECT_TRUE(Until([&] { return reports->MailsWaiting() == 0; }));
  EXPECT_EQ(server.Messages().size(), 2u);
}

TEST_F(WatchReporting, AWebhookIsRepeatedInItsOrderUntilItIsTaken) {
  std::atomic<int> requests{0};
  testkit::HttpServer server;
  server.On("/secret", [&](const testkit::HttpRequest&) -> std::string {
    switch (requests++) {
      case 0:
        return testkit::HttpServer::Answer("503 later\r\nRetry-After: 100\r\n", "");
      case 1:
        return "";
      default:
        return testkit::HttpServer::Answer("204 taken\r\n", "");
    }
  });
  settings.downActions = settings.upActions = {{WatchAction::Webhook, server.Url("/secret"), {}}};
  Configure();
  Report(About("web"));
  Report(About("web", WatchReport::Up));
  EXPECT_TRUE(Until([&] { return IsTold("HTTP answer: 503 later. It will be tried again."); }));
  EXPECT_FALSE(IsTold("secret"));
  EXPECT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(reports->Waiting().size(), 2u);
  RestartReports();
  EXPECT_TRUE(Until([&] { return IsTold("': no answer. It will be tried again."); }));
  AdvanceClockForTests(6s);
  EXPECT_TRUE(Until([&] { return reports->Waiting().empty(); }));
  const std::vector<testkit::HttpRequest> all = server.Requests();
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[2].method, "POST");
  EXPECT_EQ(all[2].Field("content-type"), "application/json");
  EXPECT_TRUE(all[2].body.starts_with(R"({"state":"down","name":"web","host":"http://***@web/",)"));
  EXPECT_TRUE(all[3].body.starts_with(R"({"state":"up",)"));
}

// The status has taken it; nobody reads the body.
TEST_F(WatchReporting, AWebhooksAnswerNeedNotEnd) {
  std::atomic<int> requests{0};
  testkit::LoopbackServer server([&](testkit::Connection& connection, std::size_t) {
    std::string request;
    connection.Read(request);
    connection.Send(requests++ == 0 ? "HTTP/1.1 200 OK\r\n\r\n"
                                    : "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n");
    while (requests == 1 && connection.Send(std::string(1000, 'x'))) {
    }
    connection.ReadToEnd(request);
  });
  settings.downActions = {
      {WatchAction::Webhook, "http://127.0.0.1:" + std::to_string(server.Port()) + "/", {}}};
  Configure();
  Report(About("endless"));
  EXPECT_TRUE(Until([&] { return reports->Waiting().empty(); }));
  Report(About("silent"));
  EXPECT_TRUE(Until([&] { return requests == 2; }));
  EXPECT_TRUE(Until([&] {  // each part of the answer begins the limit anew
    AdvanceClockForTests(1s);
    return reports->Waiting().empty();
  }));
  EXPECT_TRUE(notes.empty());
}

TEST_F(WatchReporting, AWebhookThatIsRefusedIsGivenUp) {
  testkit::HttpServer server;
  server.On("/", [](const auto&) { return testkit::HttpServer::Answer("404 no\r\n", ""); });
  server.On("/broken", [](const auto&) { return testkit::HttpServer::Answer("500 oops\r\n", ""); });
  settings.downActions = {{WatchAction::Webhook, server.Url("/"), {}},
                          {WatchAction::Webhook, server.Url("/broken"), {}}};
  Configure();
  Report(About("web"));
  EXPECT_TRUE(Until([&] { return IsTold("404 no. It is given up."); }));
  EXPECT_TRUE(Until([&] { return IsTold("500 oops. It will be tried again."); }));
  AdvanceClockForTests(24h);
  EXPECT_TRUE(Until([&] { return IsTold("500 oops. It is given up."); }));
}

TEST(WatchReportText, JsonHoldsWhateverAServerSays) {
  WatchReport report = About("a\"b\\");
  report.facts.errorDump = "\r\n\x7F\xFF\xC3\xBC";
  report.milliSeconds = 7;
  report.date = 0;
  EXPECT_EQ(WatchReportJson(report),
            "{\"state\":\"down\",\"name\":\"a\\\"b\\\\\",\"host\":\"http://***@a\\\"b\\\\/\","
            "\"time\":null,\"since\":null,\"ms\":7,"
            "\"failure\":\"\\u000d\\u000a\\u007f\xEF\xBF\xBD\xC3\xBC\",\"watcher\":\"here\"}");
}

}  // namespace
}  // namespace netro
