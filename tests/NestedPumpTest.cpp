// What goes wrong when events wait for further events, when a peer acts before it was asked, and
// when arguments and settings change under a running call. Each case was a fault once.

#include "HttpTestKit.h"
#include "SilentHost.h"
#include "SocketTestKit.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

// A server that acts on its own and tells when it has; the client looks only after that.
class Eager {
 public:
  explicit Eager(std::function<void(Connection&)> act)
      : server_([this, act = std::move(act)](Connection& connection, std::size_t) {
          act(connection);
          acted_ = true;
          connection.Pause(24h);
        }) {}
  int Port() const { return server_.Port(); }
  void Await() const {
    while (!acted_) std::this_thread::yield();
  }

 private:
  std::atomic<bool> acted_{false};
  LoopbackServer server_;
};

// Holds every blocking call of this thread up, after it has begun, until the server has acted.
class AfterServer {
 public:
  explicit AfterServer(const Eager& server) {
    MessageLoop::ForThisThread().SetHostPump([&server] { server.Await(); });
  }
  ~AfterServer() { MessageLoop::ForThisThread().SetHostPump(nullptr); }
};

const char kBusy[] = "HTTP/1.1 503 Busy\r\nContent-Type: text/plain\r\nContent-Length: 2\r\n\r\nno";

TEST(BeforeTheRequest, AnswerOrCloseIsSeen) {
  const struct {
    const char* name;
    std::function<void(Connection&)> act;
    std::int32_t result, error;
  } cases[] = {
      {"close", [](Connection& c) { c.Close(); }, 0, 10054},
      {"reset", [](Connection& c) { c.Reset(); }, 0, 10054},
      {"answer", [](Connection& c) { c.Send(kBusy); }, 503, 0},
      {"answer and close",
       [](Connection& c) {
         c.Send(kBusy);
         c.Close();
       },
       503, 0},
      {"answer and reset",
       [](Connection& c) {
         c.Send(kBusy);
         c.Reset();
       },
       503, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Eager server(c.act);
    const AfterServer after(server);
    HttpClient http("http://127.0.0.1:" + std::to_string(server.Port()));
    bool timeout = false;
    http.HTTPQuery(timeout);
    EXPECT_FALSE(timeout);
    EXPECT_EQ(http.HTTPResult(), c.result);
    EXPECT_EQ(http.LastErr(), c.error);
  }
}

TEST(BeforeTheRequest, ResetBehindAnAcceptIsACloseAndLosesNoData) {
  Eager server([](Connection& c) {
    c.Send("hello");
    c.Reset();
  });
  SocketCls socket;
  Recorder recorder(socket);
  ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
  server.Await();
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
  EXPECT_FALSE(recorder.Saw("Error"));
  EXPECT_EQ(recorder.received, "hello");
  std::int32_t error = 0;
  EXPECT_FALSE(socket.Socks5Prolog(true, false, "host", 80, "", "", error));
  EXPECT_EQ(error, 9003) << "a proxy that has hung up";
}

// In `event` the owner waits for what belongs to the same notification.
void ExpectNested(const std::string& event, const std::string& sent, bool close,
                  const std::function<bool(const Recorder&)>& awaited) {
  SCOPED_TRACE(event);
  Eager server([&](Connection& c) {
    c.Send(sent);
    if (close) c.HalfClose();
  });
  SocketCls socket;
  Recorder recorder(socket);
  bool started = false;
  bool seen = false;
  recorder.hook = [&](const std::string& one) {
    if (one != event || started) return;
    started = true;
    seen = PumpUntil([&] { return awaited(recorder); });
  };
  ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
  server.Await();
  EXPECT_TRUE(PumpUntil([&] { return started; }));
  EXPECT_TRUE(seen);
}

TEST(Nested, RestOfANotificationIsDelivered) {
  const std::string much(40'000, 'x');
  ExpectNested("Connect", "banner", false, [](const Recorder& r) { return r.received != ""; });
  ExpectNested("DataArrival", much, false,
               [&](const Recorder& r) { return r.received.size() == much.size(); });
  ExpectNested("DataArrival", "bye", true, [](const Recorder& r) { return r.Saw("Closed"); });
}

TEST(Nested, ReconnectInsideTheReadLoopGetsItsData) {
  Eager first([](Connection& c) { c.Send("first"); });
  Eager second([](Connection& c) { c.Send("second"); });
  SocketCls socket;
  Recorder recorder(socket);
  socket.SocketIsBusy(true);
  ASSERT_TRUE(ConnectAndWait(socket, first.Port()));
  first.Await();
  MessageLoop& loop = MessageLoop::ForThisThread();
  // Tasks run before notifications: the inner one is still queued when the read loop pumps.
  loop.PostTask([&] {
    loop.PostTask([&] {
      socket.Connect("127.0.0.1", second.Port());
      second.Await();
      PumpUntil([&] { return socket.State() == sockConnected; });
    });
  });
  socket.SocketIsBusy(false);
  EXPECT_TRUE(PumpUntil([&] { return recorder.received.ends_with("second"); }))
      << recorder.received;
}

TEST(Nested, FloodsDoNotMultiply) {
  LoopbackServer flood([](Connection& connection, std::size_t) {
    while (connection.Send(std::string(65'536, 'f'))) continue;
  });
  constexpr int kSockets = 4;
  Crowd crowd;
  int blocks = 0;
  const auto count = [&](SocketCls&, Recorder& recorder) {
    recorder.hook = [&](const std::string&) {
      ++blocks;
      recorder.received.clear();
    };
  };
  ASSERT_TRUE(crowd.Connect(kSockets, flood.Port(), count));
  blocks = 0;
  MessageLoop::ForThisThread().PumpMessages();
  EXPECT_LE(blocks, kSockets * kSockets * 64 * 2) << "turns of turns: deadlines would starve";
}

// Each call waits inside the one before it. The stack of a thread holds a hundred of them and more,
// but not what a timer that never asks would start.
TEST(NestedWaits, MoreThanAHundredAreRefused) {
  const SilentHost host;
  MessageLoop& loop = MessageLoop::ForThisThread();
  int waiting = 0;
  int refused = 0;
  const auto ask = [&] {
    HttpClient http(host.Url());
    bool timeout = true;
    ++waiting;
    EXPECT_LE(waiting, 110);
    const std::string text = http.HTTPQuery(timeout);
    --waiting;
    if (http.LastErr() == 9999) return;
    ++refused;
    EXPECT_GE(waiting, 100);
    EXPECT_EQ(http.LastErr(), 10036);
    EXPECT_EQ(text.find("Operation Now in Progress"), 0u) << text;
    EXPECT_EQ(loop.Sleep(std::chrono::milliseconds(1)), 10036);
    // A task has a stack of its own.
    std::int32_t slept = -1;
    const Task task = loop.StartTask([&] { slept = loop.Sleep(std::chrono::milliseconds(0)); });
    EXPECT_EQ(task.Wait(), 10036);
    while (!task.Done()) loop.PumpMessages();
    EXPECT_EQ(slept, 0);
    SocketCls().Kill();
  };
  std::int32_t timer = 0;
  timer = loop.SetTimer(1, [&] {
    if (refused > 0) return loop.KillTimer(timer);
    ask();
  });
  EXPECT_TRUE(PumpUntil([&] { return refused > 0 && waiting == 0; }));
  EXPECT_EQ(refused, 1);
  loop.KillTimer(timer);
}

TEST(Stream, UrgentDataDoesNotStopTheRest) {
  Eager server([](Connection& c) {
    c.Send("abc");
    SendUrgent(c.Fd());
    c.Send("def");
  });
  SocketCls socket;
  Recorder recorder(socket);
  ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
  server.Await();
  EXPECT_TRUE(PumpUntil([&] { return recorder.received == "abcdef"; })) << recorder.received;
}

TEST(Arguments, MayBeTheObjectsOwnProperties) {
  BytesServer server({{testkit::Stay()}});
  SocketCls socket;
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  EXPECT_TRUE(socket.Connect(socket.RemoteIP(), socket.RemotePort()));
  ASSERT_TRUE(PumpUntil([&] { return socket.State() == sockConnected; }));
  socket.LocalPort(0);
  EXPECT_TRUE(socket.Listen(socket.LocalIP()));
  EXPECT_EQ(socket.LocalIP(), "127.0.0.1");
}

// Changes everything it can in the first answer of two.
class Meddler : public HTTPClsEvents {
 public:
  void Status(HTTPCls& http, const std::string&) override {
    http.AddHeader("X", "a\r\nInjected: yes");
    http.QueryType(static_cast<QueryTypeEnum>(9));
    http.URL("http://127.0.0.1:1/");
    http.ProxyType(ProxyPipe);
    http.Filename("/nowhere/at/all");
  }
};

TEST(Settings, ChangesInAnEventAreForTheNextQuery) {
  BytesServer server(
      {{AwaitText("\r\n\r\n"), testkit::Send("HTTP/1.1 401 No\r\nContent-Length: 2\r\n\r\nno")},
       {AwaitText("\r\n\r\n"), testkit::Send("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nyes")}});
  Meddler meddler;
  HTTPCls http;
  http.Events(&meddler);
  http.SendAuthAfterChallenge(true);
  http.URL("http://127.0.0.1:" + std::to_string(server.Port()) + "/x");
  bool timeout = false;
  http.HTTPQuery(timeout);
  EXPECT_EQ(http.HTTPResult(), 200);
  EXPECT_EQ(server.Connections(), 2u);
  const std::string second = server.Received(1);
  EXPECT_EQ(second.find("Injected"), std::string::npos);
  EXPECT_TRUE(second.starts_with("GET /x HTTP/1.1\r\n")) << second;
  ASSERT_TRUE(http.SaveAsFile());
  EXPECT_EQ(remove(http.Filename().c_str()), 0) << "the property names the file that was made";
}

}  // namespace
}  // namespace netro
