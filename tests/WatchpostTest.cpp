// WatchpostCls: operations and their texts, rounds against scripted servers, and every report.
#include <netro/QueryDNSCLS.h>
#include <netro/WatchpostCls.h>
#include <netro/testkit/DnsReply.h>
#include <netro/testkit/DnsServer.h>
#include <netro/testkit/SmtpServer.h>

#include "SystemKit.h"
#include "TestKit.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

// Notes the events as words; `hook` is called with each.
class Journal : public WatchpostClsEvents {
 public:
  explicit Journal(std::unique_ptr<WatchpostCls>& post) : post_(post) {}

  std::function<void(const std::string& event)> hook = [](const std::string&) {};
  int rounds = 0;

  std::string Take() { return std::exchange(events_, {}); }

 private:
  void Alert(const std::string& Protocol, std::int32_t Index, bool SuccessMsg,
             const std::string& HostName, const std::string& Host,
             const std::string& ErrorDump) override {
    EXPECT_EQ(post_->HostAt(Index).Host, Host);
    Note((SuccessMsg ? "up:" : "down:") + HostName + "/" + Protocol + "/" + ErrorDump);
  }
  void OnTheHunt(bool Hunting) override { Note(Hunting ? "hunt" : "rest"); }
  void Probed(std::int32_t Index) override { Note("probed" + std::to_string(Index)); }
  void RoundEnded() override {
    ++rounds;
    Note("round");
  }
  void Note(const std::string& event) {
    events_ += (events_.empty() ? "" : " ") + event;
    hook(event);
  }

  std::unique_ptr<WatchpostCls>& post_;
  std::string events_;
};

struct Watchpost : testing::Test {
  Watchpost() {
    Make();
    server.On("/", [this](const testkit::HttpRequest&) {
      return HttpServer::Answer(std::to_string(status) + " x\r\n", "");
    });
  }
  ~Watchpost() override { post.reset(); }

  void Make() {
    post = std::make_unique<WatchpostCls>();
    post->Events(&journal);
    post->SettingsName(folder / "watch.ini");
  }
  void Write(const std::string& text) { std::ofstream(folder / "watch.ini") << text; }
  // One HTTP host that goes down and up after two probes.
  void WriteOneHost(const std::string& more) {
    Write("[Settings]\nUpCycle=2\nDownCycle=2\n" + more + "\n[HostNames]\nweb=" + server.Url("/") +
          "|http\n");
  }
  std::string Log() const { return ReadFile(folder / "watch.csv"); }

  // The clock moves a second at a time, but not while a round is running or nothing is observed.
  bool Until(const std::function<bool()>& done) {
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (!done()) {
      if (std::chrono::steady_clock::now() > limit) return false;
      if (post && post->GetStatus() == WatchpostStarted) AdvanceClockForTests(1s);
      MessageLoop::ForThisThread().PumpMessages();
    }
    return true;
  }
  // The clock stands still: what is under way with peers does not time out.
  bool Await(const std::function<bool()>& done) {
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (!done() && std::chrono::steady_clock::now() < limit) {
      MessageLoop::ForThisThread().Sleep(1ms);
    }
    return done();
  }
  bool Rounds(int more) {
    const int target = journal.rounds + more;
    return Until([&] { return journal.rounds >= target; });
  }

  TemporaryFolder folder;
  std::atomic<int> status{200};
  HttpServer server;
  std::unique_ptr<WatchpostCls> post;
  Journal journal{post};
};

TEST_F(Watchpost, EveryOperationTellsWhyItIsRefused) {
  const auto refused = [&](bool (WatchpostCls::*operation)(), const std::string& text) {
    const std::int32_t before = post->GetStatus();
    EXPECT_FALSE((post.get()->*operation)()) << text;
    EXPECT_EQ(post->LastErrMsg(), text);
    EXPECT_NE(post->LastErr(), 0) << text;
    EXPECT_EQ(post->GetStatus(), before) << text;
  };
  refused(&WatchpostCls::StartObservation,
          "Settings file not found: '" + post->SettingsName() + "'.");
  Write("[HostNames]\na=127.0.0.1|Ping\n");
  refused(&WatchpostCls::RefreshSettings, "Neither a DownActions nor a UpAction is defined.");
  Write("[UpActions]\n1=log\n");
  refused(&WatchpostCls::RefreshSettings, "No Hosts to observe found.");
  WriteOneHost("[UpActions]\n1=log");
  refused(&WatchpostCls::StopObservation, "Nothing to stop.");
  refused(&WatchpostCls::PauseObservation, "Watchpost is stopped. Therefore you can now pause it.");
  refused(&WatchpostCls::ContinueObservation, "You have to use StartObservation.");
  refused(&WatchpostCls::ObserveNow,
          "Observation is not started. Please use StartObseration first.");
  std::filesystem::create_directory(folder / "watch.csv");
  EXPECT_FALSE(post->StartObservation());
  EXPECT_TRUE(post->LastErrMsg().starts_with("Can not start logging.")) << post->LastErrMsg();
  std::filesystem::remove(folder / "watch.csv");
  EXPECT_EQ(journal.Take(), "");

  EXPECT_TRUE(post->StartObservation());
  EXPECT_EQ(post->LastErrMsg(), "");
  EXPECT_EQ(post->GetStatus(), WatchpostStarted);
  refused(&WatchpostCls::StartObservation, "Ansel's Watchpost observation already started.");
  refused(&WatchpostCls::ContinueObservation, "Already started.");
  EXPECT_TRUE(post->ObserveNow());
  EXPECT_EQ(post->GetStatus(), WatchpostBusy);
  refused(&WatchpostCls::ObserveNow, "Observation is busy. Retry later.");
  EXPECT_TRUE(post->PauseObservation());
  refused(&WatchpostCls::PauseObservation, "Already paused.");
  refused(&WatchpostCls::ObserveNow,
          "Observation is not started. Please use StartObseration first.");
  EXPECT_EQ(post->GetStatus(), WatchpostPaused);
  EXPECT_TRUE(post->ContinueObservation());
  EXPECT_TRUE(Rounds(1)) << "the round that was given up is made up for";
  EXPECT_TRUE(post->StopObservation());
  EXPECT_EQ(journal.Take(), "hunt rest hunt probed0 round rest");
}

TEST_F(Watchpost, AHostThatGoesDownAndComesBackIsToldOnceEach) {
  testkit::SmtpServer mail;
  WriteOneHost("Recipients=admin@example.test\nSender=watch@example.test\nMailServer=127.0.0.1:" +
               std::to_string(mail.Port()) +
               "\nGroupSeconds=0\nDownLogMsg=Name$ down: ErrorDump$\nUpLogMsg==Name$ "
               "up\nDownSubject=Name$ is down\n"
               "[DownActions]\n1=log\n2=mail\n3=run|touch|\"" +
               folder / "Name$ down" + "\"\n4=run|/nonesuch|x Name$\n[UpActions]\n1=log\n");
  EXPECT_TRUE(post->StartObservation());
  status = 503;
  EXPECT_TRUE(Rounds(2));
  EXPECT_TRUE(Await([&] {
    return post->MailsWaiting() == 0 && std::filesystem::exists(folder / "web down") &&
           post->LastErr() != 0;
  }));
  EXPECT_TRUE(Rounds(2));
  EXPECT_EQ(post->HostAt(0).State, WatchedDown);
  EXPECT_EQ(post->HostAt(0).Failures, 4);
  EXPECT_EQ(post->LastErrMsg(),
            "Error while starting '/nonesuch'. Parameters: 'x web'. Error: No such file or "
            "directory");
  status = 301;
  EXPECT_TRUE(Rounds(3));
  EXPECT_EQ(post->HostAt(0).State, WatchedUp);
  EXPECT_EQ(journal.Take(),
            "hunt probed0 round probed0 down:web/http/HTTP answer: HTTP/1.1 503 x round "
            "probed0 round probed0 round probed0 round "
            "probed0 up:web/http/HTTP answer: HTTP/1.1 503 x round probed0 round");
  EXPECT_TRUE(post->StopObservation());
  ASSERT_EQ(mail.Messages().size(), 1u);
  EXPECT_NE(mail.Messages()[0].find("Subject: web is down\r\n"), std::string::npos);

  std::string log = Log();
  const std::string url = server.Url("/");
  for (const std::string& line :
       {std::string("\"time\",\"state\",\"name\",\"host\",\"milliseconds\",\"text\"\r\n"),
        "\"down\",\"web\",\"" + url + "\",\"\",\"web down: HTTP answer: HTTP/1.1 503 x\"\r\n",
        "\"program\",\"web\",\"" + url + "\",\"\",\"Error while starting '/nonesuch'."}) {
    EXPECT_NE(log.find(line), std::string::npos) << line << "\nis not in\n" << log;
  }
  EXPECT_NE(log.find("\"'=web up\"\r\n"), std::string::npos) << "no formula";
  EXPECT_EQ(std::ranges::count(log, '\n'), 4) << log;
}

// A round is what began together: the silent host has its own, and the others go on.
TEST_F(Watchpost, ASilentHostDoesNotDelayTheOthersAndFailsInTime) {
  testkit::BytesServer silent({{testkit::Stay()}});
  Write(
      "[Settings]\nHTTPTimeout=3600\n[DownActions]\n1=log\n[HostNames]\nsilent=http://127.0.0.1:" +
      std::to_string(silent.Port()) + "/|http\nrefused=127.0.0.1|tcp:1\nweb=" + server.Url("/") +
      "|http\n");
  EXPECT_TRUE(post->StartObservation());
  for (std::int32_t second = 1; second <= 41; ++second) {
    AdvanceClockForTests(1s);
    EXPECT_TRUE(Until([&] { return post->HostAt(1).Failures == 1 + (second - 1) / 10; })) << second;
  }
  EXPECT_EQ(post->HostAt(1).State, WatchedDown);
  EXPECT_TRUE(Until([&] { return post->HostAt(2).State == WatchedUp; }));
  EXPECT_EQ(post->HostAt(0).LastProbe, 0);
  EXPECT_EQ(journal.rounds, 4) << "that of the silent one goes on";
  AdvanceClockForTests(1h);
  EXPECT_TRUE(Until([&] { return post->HostAt(0).LastProbe != 0; }));
  EXPECT_EQ(post->HostAt(0).LastAnswer, "Command Timed Out");
}

TEST_F(Watchpost, EveryKindOfProbeSaysWhatItMet) {
  using testkit::AwaitText;
  using testkit::Send;
  const struct {
    const char* kind;
    std::vector<testkit::Script> scripts;  // of a server of its own
    const char* answer;
  } kCases[] = {
      {"http",
       {{AwaitText("\r\n\r\n"),
         Send("HTTP/1.1 103 Early\r\nA: b\r\n\r\nHTTP/1.1 100 x\r\n\r\nHTTP/1.1 404 no\r\n\r\n",
              {5, 21, 28, 60})}},
       "HTTP answer: HTTP/1.1 404 no"},
      {"http", {{Send("SSH-2.0 200 OK\r\n"), testkit::Stay()}}, "The answer is no HTTP"},
      {"http",
       {{AwaitText("\r\n\r\n"), Send("HTTP/1.1 500 \x1b\xff\r\n\r\n")}},
       "HTTP answer: HTTP/1.1 500 ??"},
      {"http",
       {{AwaitText("\r\n\r\n"), Send("HTTP/1.1 200 OK"), testkit::Close()}},
       "Connection Reset by Peer."},
      {"http 404", {{AwaitText("\r\n\r\n"), Send("HTTP/1.1 404 no\r\n\r\n")}}, "Success: "},
      {"http \"well done\"",
       {{AwaitText("\r\n\r\n"), Send("HTTP/1.1 200 OK\r\n\r\nall is well done", {20, 28, 33}),
         testkit::Stay()}},
       "Success: "},
      {"http \"well done\"",
       {{AwaitText("\r\n\r\n"), Send("HTTP/1.1 200 OK\r\n\r\nall is we"), testkit::Close()}},
       "HTTP answer without 'well done'"},
      {"tcp:", {{testkit::Stay()}}, "Success: "},
      {"tcp: \"SSH-2\"", {{Send("SSH-2.0 x\r\n", {2}), testkit::Stay()}}, "Success: "},
      {"tcp: \"SSH-2\"", {{Send("SSH-1\r\n"), testkit::Close()}}, "No 'SSH-2' in: SSH-1"},
      {"smtp:",
       {{Send("220 hi\r\n"), AwaitText("HELO"), Send("250 x\r\n"), AwaitText("QUIT"),
         Send("221 bye\r\n")}},
       "Success: "},
      {"smtp:", {{Send("554 go away\r\n"), testkit::Stay()}}, "SMTP: 554 go away"},
      {"dns:a.test:", {}, "DNS: "},  // nobody at port 1
  };
  std::vector<std::unique_ptr<testkit::BytesServer>> servers;
  std::string text = "[DownActions]\n1=log\n[HostNames]\n";
  for (const auto& test : kCases) {
    servers.push_back(std::make_unique<testkit::BytesServer>(test.scripts));
    const std::string port = test.scripts.empty() ? "1" : std::to_string(servers.back()->Port());
    std::string kind = test.kind;
    const bool isWeb = kind.starts_with("http");
    if (!isWeb) kind.insert(kind.rfind(':') + 1, port);
    text += std::to_string(servers.size()) + "=" +
            (isWeb ? "http://127.0.0.1:" + port + "/" : "127.0.0.1") + "|" + kind + "\n";
  }
  Write(text + "bad=ftp://x/|http\n");
  EXPECT_TRUE(post->StartObservation()) << post->LastErrMsg();
  EXPECT_TRUE(Rounds(1));
  const auto last = static_cast<std::int32_t>(servers.size());
  EXPECT_EQ(post->HostAt(last).LastAnswer, "URL: the protocol \"ftp\" is not supported.");
  for (std::int32_t i = 0; i < last; ++i) {
    const WatchedHost host = post->HostAt(i);
    EXPECT_TRUE(host.LastAnswer.starts_with(kCases[i].answer))
        << host.Name << " " << host.Kind << ": " << host.LastAnswer;
  }
}

TEST_F(Watchpost, ADnsServerIsAskedForAName) {
  namespace dns = testkit::dns;
  std::atomic<int> type = TYPE_A;
  testkit::DnsServer names([&](const std::string& query) -> testkit::DnsServer::Replies {
    const std::string data = type == TYPE_A ? dns::Octets({127, 0, 0, 1}) : dns::Name("a.test");
    return {testkit::DnsReply(query).Answer(dns::Record(dns::kQuestion, type, data)).Bytes()};
  });
  Write("[DownActions]\n1=log\n[HostNames]\ndns=127.0.0.1|dns:a.test:" +
        std::to_string(names.Port()) + "\n");
  EXPECT_TRUE(post->StartObservation());
  EXPECT_TRUE(Rounds(1));
  EXPECT_EQ(post->HostAt(0).State, WatchedUp) << post->HostAt(0).LastAnswer;
  type = TYPE_CNAME;
  EXPECT_TRUE(Rounds(1));
  EXPECT_EQ(post->HostAt(0).LastAnswer, "DNS: an alias without an address.");
}

// A crash leaves the file as it is while the mail is gathered and while the webhook has no answer.
TEST_F(Watchpost, ACrashLosesNoReport) {
  testkit::SmtpServer mails;
  std::atomic<bool> silent = true;
  server.On("/hook", [&](const testkit::HttpRequest&) {
    return silent ? std::string() : HttpServer::Answer("204 x\r\n", "");
  });
  const auto count = [&](const std::string& path) {
    return std::ranges::count(server.Requests(), path, &testkit::HttpRequest::target);
  };
  WriteOneHost(
      "StateFile=state\nGroupSeconds=3600\nSender=watch@me.test\nRecipients=a@xy.test\n"
      "MailServer=127.0.0.1:" +
      std::to_string(mails.Port()) + "\n[DownActions]\n1=mail\n2=webhook|" + server.Url("/hook"));
  status = 500;
  EXPECT_TRUE(post->StartObservation());
  EXPECT_TRUE(Rounds(3));
  EXPECT_TRUE(Await([&] { return count("/hook") > 0; }));
  const std::string state = ReadFile(folder / "state");
  post->Kill();
  Make();
  EXPECT_NE(ReadFile(folder / "state").find("other mail"), std::string::npos);
  WriteFile(folder / "state", state);
  silent = false;
  const auto before = count("/hook");
  EXPECT_TRUE(post->StartObservation());
  EXPECT_EQ(post->MailsWaiting(), 1);
  EXPECT_TRUE(Await([&] { return count("/hook") > before; }));
  EXPECT_TRUE(Await([&] {  // an answer that was counted is still on its way
    return ReadFile(folder / "state").find("other hook") == std::string::npos;
  }));
  EXPECT_TRUE(post->StopObservation());
  EXPECT_TRUE(Await([&] { return mails.Messages().size() == 1; }));
  post->Kill();
  EXPECT_EQ(mails.Messages().size(), 1u);
}

TEST_F(Watchpost, WithoutPermissionEchoesAreNoFailures) {
  const auto without = WithoutRawSockets();
  if (EchoIsPermitted()) GTEST_SKIP() << "the system allows echoes to everybody";
  Write("[Settings]\nDownCycle=1\n[DownActions]\n1=log\n[HostNames]\na=127.0.0.1|Ping\n");
  EXPECT_FALSE(post->StartObservation());
  EXPECT_TRUE(post->LastErrMsg().starts_with("ICMPCreateFile Error.")) << post->LastErrMsg();
  EXPECT_TRUE(post->AddHost("web", server.Url("/"), "http"));
  EXPECT_TRUE(post->StartObservation());
  EXPECT_TRUE(Rounds(3));
  EXPECT_TRUE(post->HostAt(0).NotProbed);
  EXPECT_EQ(post->HostAt(0).State, WatchedUnknown);
  EXPECT_EQ(post->HostAt(0).LastAnswer, "ICMPCreateFile Error");
  EXPECT_EQ(post->HostAt(1).State, WatchedUp);
}

// They stay until the program takes them out, and are bound to the same rules.
TEST_F(Watchpost, AProgramHasHostsOfItsOwn) {
  Write("");
  EXPECT_FALSE(post->AddHost("a", "x", "smpt"));
  EXPECT_EQ(post->LastErrMsg(), "'smpt' is no kind of probe.");
  EXPECT_FALSE(post->AddHost("a", "x", "Ping", "b"));
  EXPECT_EQ(post->LastErrMsg(), "'a' stands behind 'b', which is not in the list.");
  EXPECT_TRUE(post->AddHost("a", server.Url("/"), "http"));
  EXPECT_FALSE(post->StartObservation()) << "no action";
  post->OwnReports(true);
  EXPECT_TRUE(post->StartObservation()) << post->LastErrMsg();
  EXPECT_TRUE(post->AddHost("b", server.Url("/"), "http", "A"));
  EXPECT_FALSE(post->AddHost("B", server.Url("/"), "http"));
  EXPECT_TRUE(post->RefreshSettings());
  EXPECT_TRUE(Rounds(1));
  EXPECT_EQ(post->HostAt(1).Parent, "A");
  EXPECT_FALSE(post->RemoveHost("a")) << "b stands behind it";
  EXPECT_TRUE(post->ResetWatchAt() && post->ObserveNow());
  EXPECT_TRUE(post->RemoveHost("b"));
  EXPECT_TRUE(post->RemoveHost("a"));
  EXPECT_EQ(post->HostCount(), 0);
  EXPECT_EQ(post->GetStatus(), WatchpostStarted) << "its probe was cancelled";
}

TEST_F(Watchpost, HostsOfIPv6) {
  if (!EchoIsPermitted()) GTEST_SKIP() << "the system allows this program no echo";
  SystemRoot root;
  root.Put("etc/hosts", "::1 six.test\n::1 both.test\n127.0.0.1 both.test\n");
  Write(
      "[DownActions]\n1=log\n[HostNames]\naddress=::1|Ping\nname=six.test|Ping\n"
      "zone=fe80::1|Ping\nrefused=http://six.test:1/|http\nbrackets=http://[::1]:1/|http\n"
      "web=http://both.test:" +
      std::to_string(server.Port()) + "/|http\n");
  EXPECT_TRUE(post->StartObservation());
  EXPECT_TRUE(Rounds(1));
  const char* const kAnswers[] = {
      "Success", "Success", "General Failure", "Connection Refused", "Connection Refused",
      "Success"};
  for (std::int32_t i = 0; i < post->HostCount(); ++i)
    EXPECT_TRUE(post->HostAt(i).LastAnswer.starts_with(kAnswers[i])) << post->HostAt(i).LastAnswer;
}

TEST_F(Watchpost, WhatThisProgramLacksIsNoFailureOfAHost) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer needs descriptors itself";
#endif
  Write("[DownActions]\n1=log\n[HostNames]\necho=127.0.0.1|Ping\nname=a.test|Ping\nweb=" +
        server.Url("/") + "|http\nsix=::1|Ping\n");
  EXPECT_TRUE(post->StartObservation());
  auto none = WithDescriptors(0);
  EXPECT_TRUE(Rounds(1));
  none.reset();
  for (std::int32_t i = 0; i < 4; ++i) EXPECT_EQ(post->HostAt(i).Failures, 0) << i;
  EXPECT_EQ(journal.Take(), "hunt round");
  EXPECT_EQ(post->LastErr(), 10055);
  EXPECT_NE(post->LastErrMsg(), "");
}

TEST_F(Watchpost, AnAnswerThatCameWhileTheThreadWasBusyIsNoSilence) {
  const testkit::Script script = {testkit::AwaitText("\r\n\r\n"),
                                testkit::Send("HTTP/1.1 200 OK\r\n\r\n"), testkit::Close()};
  testkit::BytesServer web({script});
  Write("[DownActions]\n1=log\n[HostNames]\nweb=http://127.0.0.1:" + std::to_string(web.Port()) +
        "/|http\n");
  EXPECT_TRUE(post->StartObservation());
  EXPECT_TRUE(post->ObserveNow());
  EXPECT_TRUE(Until([&] { return !web.ReceivedSoFar(0).empty(); }));
  EXPECT_NE(web.Received(0), "") << "the answer is here, though not read";
  AdvanceClockForTests(1h);
  EXPECT_TRUE(Until([&] { return journal.rounds == 1; }));
  EXPECT_EQ(post->HostAt(0).State, WatchedUp);
}

TEST_F(Watchpost, WhatIsKnownSurvivesPauseAndNewSettings) {
  WriteOneHost("[DownActions]\n1=log");
  status = 500;
  EXPECT_TRUE(post->StartObservation());
  EXPECT_TRUE(Rounds(2));
  EXPECT_TRUE(post->PauseObservation());
  AdvanceClockForTests(1h);
  EXPECT_TRUE(post->ContinueObservation());
  WriteOneHost("x=y\n[UpActions]\n1=log");
  EXPECT_TRUE(post->RefreshSettings());
  EXPECT_EQ(post->HostAt(0).State, WatchedDown);
  status = 200;
  journal.Take();
  EXPECT_TRUE(Rounds(2));
  EXPECT_EQ(journal.Take(), "probed0 round probed0 up:web/http/HTTP answer: HTTP/1.1 500 x round");
}

TEST_F(Watchpost, EveryEventMayStopOrDelete) {
  for (const char* event : {"hunt", "probed0", "down:", "round", "rest"})
    for (const bool deletes : {false, true}) {
      Make();
      WriteOneHost("[DownActions]\n1=log\n2=run|true|");
      status = 500;
      bool done = false;
      journal.hook = [&](const std::string& seen) {
        if (done || !seen.starts_with(event)) return;
        done = true;
        if (deletes) return post.reset();
        EXPECT_EQ(post->StopObservation(), seen != "rest");
      };
      EXPECT_TRUE(post->StartObservation());
      const bool atStop = std::string(event) == "rest";
      EXPECT_TRUE(Until([&] { return done || (atStop && journal.rounds > 0); })) << event;
      if (atStop && post) post->StopObservation();
      EXPECT_TRUE(done) << event;
      EXPECT_EQ(post == nullptr, deletes) << event;
      if (post) {
        EXPECT_EQ(post->GetStatus(), WatchpostStopped);
      }
      journal.hook = [](const std::string&) {};
    }
}

}  // namespace
}  // namespace netro
