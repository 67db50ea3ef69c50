// How queries of the HTTP client fail, and how the caller ends them at any moment.

#include <future>

#include "socket/SocketErrors.h"
#include "tests/HttpTestKit.h"

namespace netro {
namespace {

using std::chrono::steady_clock;

constexpr char kHalf[] =
    "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 10\r\n\r\nhello";
constexpr char kWhole[] =
    "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 5\r\n\r\nhello";

// Calls a function in every Status event.
class OnStatus : public HTTPClsEvents {
 public:
  explicit OnStatus(std::function<void(HTTPCls&)> action) : action_(std::move(action)) {}
  void Status(HTTPCls& ParentObj, const std::string& RemoteHostIP) override {
    ++calls;
    address = RemoteHostIP;
    const auto action = action_;  // the action may end this sink's life
    action(ParentObj);
  }
  int calls = 0;
  std::string address;

 private:
  std::function<void(HTTPCls&)> action_;
};

TEST(HttpBadInput, NeverReachesTheWire) {
  const std::pair<const char*, std::function<void(HTTPCls&, const std::string&)>> kCases[] = {
      {"URL", [](HTTPCls& h, const std::string& bad) { h.URL(h.URL() + bad); }},
      {"eader", [](HTTPCls& h, const std::string& bad) { h.AddHeader("X" + bad + "Y", "z"); }},
      {"eader", [](HTTPCls& h, const std::string& bad) { h.AddHeader("X", "y" + bad + "z"); }},
      {"HTTPToken", [](HTTPCls& h, const std::string& bad) { h.HTTPToken("HTTP/1.1" + bad); }},
      {"User", [](HTTPCls& h, const std::string& bad) { h.User("a" + bad); }},
      {"ProxyUser", [](HTTPCls& h, const std::string& bad) { h.ProxyUser("a" + bad); }},
  };
  BytesServer server({{AwaitText("\r\n\r\n"), Send(kWhole)}});
  for (const auto& [named, set] : kCases)
    for (const std::string& bad : {"\r"s, "\n"s, "\0"s, "\r\nX-Evil: 1"s}) {
      SCOPED_TRACE(named);
      HttpClient http(LoopbackUrl(server.Port()));
      http.SendAuthAfterChallenge(true);
      UseProxy(http, ProxyBasicAuthorization, server.Port());
      set(http, bad);
      const std::string text = Query(http);
      EXPECT_EQ(http.LastErr(), 10022);
      EXPECT_NE(text.find(named), std::string::npos) << text;
    }
  // Only the query that follows has made a connection.
  HttpClient http(LoopbackUrl(server.Port()));
  EXPECT_EQ(Query(http), kWhole);
  EXPECT_EQ(server.Connections(), 1u);
}

// Fails before connecting, also through an HTTP proxy if that would get https in clear.
TEST(HttpProtocol, OtherThanHttpFailsBeforeConnecting) {
  BytesServer server({{AwaitText("\r\n\r\n"), Send(kWhole)}});
  for (const std::string protocol : {"https", "HTTPS", "ftp", "file", "ws"})
    for (const ProxyTypeEnum type : {NoProxy, ProxyBasicAuthorization, ProxyMSISAServer,
                                     ProxySocks4, ProxySocks5NoAuth, ProxySocks5Auth, ProxyPipe}) {
      const bool throughHttp =
          type == ProxyBasicAuthorization || type == ProxyMSISAServer || type == ProxyPipe;
      if (throughHttp && protocol.size() != 5) continue;
      SCOPED_TRACE(protocol + " by " + std::to_string(type));
      HTTPCls http;
      UseProxy(http, type, server.Port());
      http.URL(protocol + "://u:p@127.0.0.1:" + std::to_string(server.Port()) + "/");
      EXPECT_NE(Query(http).find("URL: "), std::string::npos);
      EXPECT_EQ(http.LastErr(), 10043);
    }
  EXPECT_EQ(server.Connections(), 0u);
}

TEST(HttpBadInput, AddedFramingIsRefused) {
  const std::pair<const char*, const char*> kFields[] = {{"Transfer-Encoding", "chunked"},
                                                         {"trailer", "X"},
                                                         {"Content-Length", "4"},
                                                         {"content-length", ""},
                                                         {"Content-Length", "3, 3"}};
  BytesServer server({{AwaitText("\r\n\r\n"), Send(kWhole)}});
  for (const auto& [name, value] : kFields)
    for (const QueryTypeEnum type : {QueryGet, QueryPost}) {
      HttpClient http(LoopbackUrl(server.Port()));
      http.QueryType(type);
      http.PostData("abc");
      http.AddHeader(name, value);
      EXPECT_NE(Query(http).find(name), std::string::npos);
      EXPECT_EQ(http.LastErr(), 10022);
    }
  EXPECT_EQ(server.Connections(), 0u);
}

// The labels of a host name have 63 characters at most, so no resolver has to be asked.
TEST(HttpConnecting, FailsWithTheNumberOfTheSocket) {
  const testkit::RefusingPort nobody;
  const struct {
    std::string url;
    std::int32_t error;
    ProxyTypeEnum proxy = NoProxy;
  } kCases[] = {{LoopbackUrl(nobody.Port()), 10061},
                {LoopbackUrl(1), 10061, ProxySocks5NoAuth},
                {"http://" + std::string(64, 'a') + ".test/", 11001}};
  for (const auto& [url, error, proxy] : kCases) {
    HttpClient http(url);
    UseProxy(http, proxy, nobody.Port());
    EXPECT_EQ(Query(http), SocketErrorText(error));
    EXPECT_EQ(http.LastErr(), error);
  }
}

// More than the system's buffers take, so the query waits while it sends.
constexpr std::size_t kMuch = 64 << 20;

void PostMuch(HTTPCls& http, int port) {
  http.URL(LoopbackUrl(port));
  http.QueryType(QueryPost);
  http.PostData(std::string(kMuch, 'x'));
}

TEST(HttpTimeout, IsTrueOnlyForTheAnswer) {
  const testkit::HangingPort full;
  BytesServer silent({{AwaitText("\r\n\r\n"), Stay()}});
  BytesServer half({{AwaitText("\r\n\r\n"), Send(kHalf), Stay()}});
  testkit::SocksRules rules;
  rules.silentAt = 0;
  testkit::SocksServer proxy(rules);
  testkit::LoopbackServer deaf(
      [](testkit::Connection& connection, std::size_t) { connection.Pause(24h); });
  const std::tuple<const char*, int, ProxyTypeEnum, bool> kCases[] = {
      {"connect", full.Port(), NoProxy, false},
      {"proxy's reply", proxy.Port(), ProxySocks4, false},
      {"sending", deaf.Port(), NoProxy, false},
      {"no byte", silent.Port(), NoProxy, true},
      {"half the body", half.Port(), NoProxy, true}};
  for (const auto& [name, port, type, timeout] : kCases) {
    SCOPED_TRACE(name);
    HTTPCls http;
    http.TimeOutSeconds(1);
    http.URL(LoopbackUrl(port));
    if (port == deaf.Port()) PostMuch(http, port);
    UseProxy(http, type, port);
    const auto start = steady_clock::now();
    EXPECT_EQ(Query(http, timeout), "Command Timed Out");
    EXPECT_GE(steady_clock::now() - start, milliseconds(990));
    EXPECT_LT(steady_clock::now() - start, milliseconds(10000));
    EXPECT_EQ(http.LastErr(), 10002);
    EXPECT_EQ(http.HTTPResult(), 0);
  }
}

// The server reads on when the clock has jumped, so all of the jump passes while the query sends.
TEST(HttpTimeout, OfManySecondsIsNotCutAfterSixty) {
  std::promise<void> jumped;
  std::future<void> jump = jumped.get_future();
  testkit::LoopbackServer slow([&](testkit::Connection& connection, std::size_t) {
    jump.wait_for(std::chrono::seconds(10));
    std::string request;
    while (request.size() < kMuch && connection.Read(request)) {
    }
    connection.Send(kWhole);
    connection.ReadToEnd(request);
  });
  HTTPCls http;
  http.TimeOutSeconds(300);
  PostMuch(http, slow.Port());
  bool done = false;
  MessageLoop& loop = MessageLoop::ForThisThread();
  const std::int32_t timer = loop.SetTimer(1, [&] {
    if (!http.WaitForData() || std::exchange(done, true)) return;
    AdvanceClockForTests(std::chrono::seconds(100));
    jumped.set_value();
  });
  EXPECT_EQ(Query(http), kWhole);
  loop.KillTimer(timer);
  EXPECT_TRUE(done);
}

void ExpectCancelled(const HTTPCls& http, const std::string& text) {
  EXPECT_EQ(text, "Command Canceled");
  EXPECT_EQ(http.LastErr(), 9999);
  EXPECT_EQ(http.HTTPResult(), 0);
}

TEST(HttpStopWaiting, FromAnotherThreadWithinMilliseconds) {
  constexpr std::size_t kRounds = 50;  // others may hold the processor
  BytesServer server({{AwaitText("\r\n\r\n"), Send(kHalf), Stay()}});
  HttpClient http(LoopbackUrl(server.Port()));
  auto fastest = steady_clock::duration::max();
  for (std::size_t round = 0; round < kRounds && fastest > milliseconds(10); ++round) {
    steady_clock::time_point stopped;
    std::thread other([&] {
      server.AwaitReceived(round, "\r\n\r\n");
      stopped = steady_clock::now();
      http.StopWaiting();
    });
    const std::string text = Query(http);
    const auto end = steady_clock::now();
    other.join();
    fastest = std::min(fastest, end - stopped);
    ExpectCancelled(http, text);
  }
  EXPECT_LT(fastest, milliseconds(10));
}

TEST(HttpStopWaiting, FromAnotherThreadAtAnyMoment) {
  BytesServer server({{AwaitText("\r\n\r\n"), Send(kWhole, {10, 50, 70})}});
  HttpClient http(LoopbackUrl(server.Port()));
  std::atomic<bool> done{false};
  std::thread other([&] {
    while (!done) {
      http.StopWaiting();
      std::this_thread::yield();
      http.Kill();
    }
  });
  for (int round = 0; round < 200; ++round) {
    const std::string text = Query(http);
    EXPECT_TRUE(text == kWhole || text == "Command Canceled") << text;
    EXPECT_EQ(http.LastErr(), text == kWhole ? 0 : 9999);
  }
  done = true;
  other.join();
  EXPECT_EQ(Query(http), kWhole);
}

TEST(HttpStatus, ComesForEveryBlockAndAllowsQueriesOfOthers) {
  HttpServer other;
  other.OnText("/", "hello");
  BytesServer server({{AwaitText("\r\n\r\n"), Send(kWhole, {20, 60})}});
  double received = 0;
  OnStatus sink([&](HTTPCls& parent) {
    EXPECT_GT(parent.ReceivedBytes(), received);
    received = parent.ReceivedBytes();
    EXPECT_NE(Query(parent), "");
    EXPECT_EQ(parent.LastErr(), 10036) << "and nothing else changes";
    HttpClient nested(other.Url("/"));
    EXPECT_EQ(Query(nested), kWhole);
  });
  HTTPCls http;
  http.Events(&sink);
  http.URL(LoopbackUrl(server.Port()));
  EXPECT_EQ(Query(http), kWhole);
  EXPECT_EQ(http.LastErr(), 0);
  EXPECT_EQ(http.ReceivedBytes(), static_cast<double>(std::string(kWhole).size()));
  EXPECT_EQ(sink.calls, 3);
  EXPECT_EQ(sink.address, "127.0.0.1");
  EXPECT_EQ(server.Connections(), 1u);
}

TEST(HttpStatus, MayDeleteTheObject) {
  for (int when = 1; when <= 3; ++when) {
    BytesServer server({{AwaitText("\r\n\r\n"), Send(kWhole, {20, 60})}});
    auto http = std::make_unique<HTTPCls>();
    auto sink = std::make_unique<OnStatus>([](HTTPCls&) {});
    sink = std::make_unique<OnStatus>([&](HTTPCls&) {
      if (sink->calls < when) return;
      http.reset();
      sink.reset();
    });
    http->Events(sink.get());
    http->URL(LoopbackUrl(server.Port()));
    Query(*http);
    EXPECT_EQ(http, nullptr);
    EXPECT_EQ(server.Received(0), "GET / HTTP/1.1\r\nHost: 127.0.0.1:" +
                                      std::to_string(server.Port()) + "\r\n\r\n\r\n");
  }
}

}  // namespace
}  // namespace netro
