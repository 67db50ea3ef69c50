// What the host's functions throw arrives at the caller of the call or of the pump, which is over
// then: nothing is lost, no other object waits in vain, and all can be used again. torture/ throws
// at every event and at many turns of every blocking call.
#include <new>

#include "ExceptionKit.h"
#include "SendMailKit.h"
#include "SystemKit.h"
#include "socket/SocketModule.h"

namespace netro {
namespace {

// What a peer at 127.0.0.1 sends, with the n-th event of the socket throwing.
TEST(SocketExceptions, TakeNothingFromTheStream) {
  const std::string much(40'000, 'm');
  BytesServer server({{testkit::Send(much)}});
  bool last = false;
  for (int passes = 0; !last; ++passes) {
    SCOPED_TRACE(passes);
    SocketCls socket;
    Recorder recorder(socket);
    Trap trap;
    trap.Set(Trap::kEvent, passes);
    recorder.hook = [&](const std::string&) { trap.Event(); };
    ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
    last = PumpThrough([&] { return recorder.Saw("Closed"); }) == 0;
    EXPECT_EQ(recorder.received, much);
    ASSERT_FALSE(HasFailure());
  }
}

TEST(SocketExceptions, InTheReadLoopOfAnotherLoseItsDataNot) {
  BytesServer server({{testkit::Send("data"), testkit::Stay()}});
  SocketCls socket;
  Recorder recorder(socket);
  socket.SocketIsBusy(true);
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  AwaitReadable(socket.SocketHandle(), 5000);
  ThisLoop().PumpMessages();  // notified, and not read
  // Tasks run before notifications: the inner one is still queued when the read loop pumps.
  ThisLoop().PostTask([] { ThisLoop().PostTask([] { throw Thrown(); }); });
  socket.SocketIsBusy(false);
  EXPECT_EQ(PumpThrough([&] { return recorder.received == "data"; }), 1);
}

TEST(SocketExceptions, RequestThatNobodyTookIsAnnouncedAgain) {
  SocketCls listener;
  Recorder recorder(listener);
  ASSERT_TRUE(listener.Listen("127.0.0.1"));
  SocketCls client, accepted;
  ASSERT_TRUE(client.Connect("127.0.0.1", listener.LocalPort()));
  recorder.hook = [&](const std::string&) {
    if (recorder.events.size() == 1) throw Thrown();
    accepted.Accept(recorder.request);
  };
  EXPECT_EQ(PumpThrough([&] { return accepted.State() == sockConnected; }), 1);
  EXPECT_EQ(recorder.events.size(), 2u);
}

TEST(SocketExceptions, CloseWhatACallHasBegunAndKeepWhatWasThere) {
  Trap trap;
  const auto cut = [&](const std::function<void()>& call) {
    trap.Set(Trap::kHostPump, 0);
    EXPECT_THROW(call(), Thrown);
    trap.Clear();
  };
  testkit::DnsServer silent(KeepSilent);
  BytesServer server({{AwaitText("sss")}});
  SocketCls socket;
  socket.DNSURL(UrlOf(silent));
  cut([&] { socket.Connect("silent.test", 80); });
  EXPECT_EQ(socket.State(), sockClosed);
  EXPECT_EQ(socket.SocketHandle(), 0);

  std::int32_t error = 0;
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  cut([&] { socket.Sock4Prolog("127.0.0.1", 80, "", false, error); });
  EXPECT_EQ(socket.SocketHandle(), 0) << "a proxy half asked is of no use";

  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  cut([&] { socket.SendData(std::string(8'000'000, 's')); });
  EXPECT_EQ(socket.State(), sockConnected);
  EXPECT_TRUE(server.AwaitReceived(1, "sss"));
}

// Two sends are blocked, one inside the other, and the inner one takes the notification of both.
TEST(SocketExceptions, InASendLetTheOuterSendTryAgain) {
  std::atomic<bool> read{false};
  testkit::LoopbackServer server([&](testkit::Connection& connection, std::size_t number) {
    std::string all;
    while (!read) std::this_thread::yield();
    if (number == 0) return connection.ReadToEnd(all);
    connection.Pause(24h);
  });
  SocketCls outer, inner;
  ASSERT_TRUE(ConnectAndWait(outer, server.Port()));
  ASSERT_TRUE(ConnectAndWait(inner, server.Port()));
  const std::string much(8'000'000, 's');
  Trap trap;
  Recorder recorder(outer);
  recorder.hook = [&](const std::string& event) {
    if (event == "SendComplete" && read) trap.Set(Trap::kTask, 20);
  };
  PostWhen([] { return SocketModule::ForThread()->SendBlocked(); },
           [&] {
             read = true;
             EXPECT_THROW(inner.SendData(much), Thrown);
             recorder.hook = nullptr;
             trap.Clear();
           });
  EXPECT_EQ(outer.SendData(much), 0);
}

struct EventExceptions : testing::Test {
  Trap trap_;
  Sink sink_{trap_};
  TemporaryFolder folder_;
};

using EchoEventExceptions = EventExceptions;

TEST_F(EchoEventExceptions, OfOneEchoLeaveTheOthers) {
  if (!EchoIsPermitted()) GTEST_SKIP() << "the system allows this program no echo";
  for (const char* host : {"127.0.0.1", "0.0.0.0"}) {  // the second one stays silent
    SCOPED_TRACE(host);
    EchoCls echo;
    echo.Events(&sink_);
    trap_.events = 0;
    trap_.Set(Trap::kEvent, 1);
    for (int i = 0; i < 3; ++i) ASSERT_NE(echo.Send(host, 0, 32, 1000), 0);
    if (host == "0.0.0.0"s) AdvanceClockForTests(std::chrono::seconds(1));
    EXPECT_EQ(PumpThrough([&] { return trap_.events == 3; }), 1);
    trap_.Clear();
  }
}

TEST_F(EventExceptions, OfALogLoseNoLine) {
  const std::string name = folder_ / "log";
  const std::function<void(LogfileCLS&)> calls[] = {
      [](LogfileCLS& log) { log.StartLogging(); },   [](LogfileCLS& log) { log.StartLogging(); },
      [](LogfileCLS& log) { log.LogEvent("line"); }, [](LogfileCLS& log) { log.StopLogging(); },
      [](LogfileCLS& log) { log.StopLogging(); },
  };
  constexpr int kEvents = 6;
  for (int passes = 0; passes < kEvents; ++passes) {
    SCOPED_TRACE(passes);
    std::filesystem::remove(name);
    LogfileCLS log;
    log.Events(&sink_);
    log.LogFileName(name);
    log.BufferSize(1);
    trap_.Set(Trap::kEvent, passes);
    int thrown = 0;
    for (const auto& call : calls) thrown += Throws([&] { call(log); });
    EXPECT_EQ(thrown, 1);
    EXPECT_EQ(ReadFile(name), "line\r\n");
  }
}

TEST_F(EventExceptions, OfALogThatIsGoneTouchItNoMore) {
  for (const int passes : {0, 1}) {
    auto log = std::make_unique<LogfileCLS>();
    log->Events(&sink_);
    log->LogFileName(folder_ / "log");
    trap_.Set(Trap::kEvent, passes, [&] {
      log.reset();
      throw std::bad_alloc();
    });
    EXPECT_THROW(log->StartLogging(), std::bad_alloc);
  }
}

TEST_F(EventExceptions, OfAWatcherLeaveItWatching) {
  HttpServer server;
  server.OnText("/", "good");
  server.On("/bad", [](const testkit::HttpRequest&) { return HttpServer::Answer("500 x\r\n", ""); });
  WriteFile(folder_ / "watch.ini",
            "[Settings]\nUpCycle=1\nDownCycle=1\n[DownActions]\n1=log\n[HostNames]\ngood=" +
                server.Url("/") + "|http\nbad=" + server.Url("/bad") + "|http\n");
  bool thrown = true;
  int passes = 0;
  for (; thrown; ++passes) {
    SCOPED_TRACE(passes);
    WatchpostCls post;
    post.Events(&sink_);
    post.SettingsName(folder_ / "watch.ini");
    trap_.Set(Trap::kEvent, passes);
    thrown = Throws([&] { post.StartObservation(); });
    sink_.rounds = 0;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (sink_.rounds < 2 && std::chrono::steady_clock::now() < limit) {
      AdvanceClockForTests(milliseconds(post.GetStatus() == WatchpostBusy ? 1 : 1000));
      thrown |= Throws([] { ThisLoop().PumpMessages(); });
    }
    EXPECT_EQ(sink_.rounds, 2);
    thrown |= Throws([&] { post.StopObservation(); });
    EXPECT_EQ(post.GetStatus(), WatchpostStopped);
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(passes, 7);
}

constexpr std::int32_t kPending = 3018;

struct Exceptions : EventExceptions {
  HttpServer http_;
  testkit::DnsServer dns_{KnowAll};
};

TEST_F(Exceptions, CaughtInANestedCallLeaveTheOuterOneAlone) {
  std::atomic<bool> asked{false}, over{false};
  http_.OnText("/", "text");
  http_.On("/slow", [&](const testkit::HttpRequest&) {
    for (asked = true; !over;) std::this_thread::yield();
    return HttpServer::Answer("200 OK\r\nContent-Type: text/plain\r\n", "slow");
  });
  testkit::DnsServer silent(KeepSilent);
  QueryDNSCLS names, last;
  PointAt(names, dns_.Port());
  PointAt(last, silent.Port());
  HTTPCls outer, inner;
  outer.Events(&sink_);
  outer.URL(http_.Url("/slow"));
  inner.URL(http_.Url("/"));
  bool timeout = false;
  const std::function<bool()> calls[] = {
      [&] { return inner.HTTPQuery(timeout).ends_with("text"); },
      [&] { return names.QueryDNS() == 0; },
  };
  const auto nested = [&] {
    for (const auto& call : calls) {
      for (const int passes : {0, 2, 9}) {
        trap_.Set(Trap::kTask, passes);
        Throws([&] { EXPECT_TRUE(call()); });
        trap_.Clear();
      }
      EXPECT_TRUE(call());
    }
    over = true;
    trap_.Set(Trap::kEvent, 0);  // the outer one's own event, within the call of another
    EXPECT_TRUE(Throws([&] { last.QueryDNS(); }));
  };
  PostWhen([&] { return asked.load(); }, nested);
  EXPECT_TRUE(outer.HTTPQuery(timeout).ends_with("slow")) << outer.LastErr();
  EXPECT_TRUE(over);
}

// The line that throws, and which of the recipients are known to have got the message then.
TEST_F(Exceptions, TellWhichRecipientsHaveTheMessage) {
  const std::pair<std::string, bool> cases[] = {
      {"354 ", false}, {"RCPT TO:<b@", false}, {"250 queued", true}, {"QUIT", true}};
  testkit::SmtpServer server([](const std::string& command) -> testkit::SmtpServer::Answer {
    return command == "." ? "250 queued\r\n" : testkit::SmtpServer::Politely(command);
  });
  SendMailCls mail;
  mail.Events(&sink_);
  mail.ProtocolLevel(pl_standard);
  mail.ReceiverHostName("127.0.0.1");
  mail.Port(server.Port());
  for (const auto& [line, accepted] : cases) {
    SCOPED_TRACE(line);
    sink_.onLine = [&, last = line](const std::string& told) {
      if (told.find(last) != told.npos) throw Thrown();
    };
    mail.NewTextMsg("Subject", "me@my.test", "a@you.test, b@you.test", "Text");
    EXPECT_THROW(mail.SendMail(), Thrown);
    ASSERT_EQ(mail.Outcomes().size(), 2u);
    for (const RecipientOutcome& outcome : mail.Outcomes()) {
      EXPECT_EQ(outcome.Accepted, accepted) << outcome.Address;
      EXPECT_EQ(outcome.ResultClass, accepted ? 0 : kPending) << outcome.Address;
    }
  }
}

}  // namespace
}  // namespace netro
