// https: directly, through tunnels of HTTP proxies and through SOCKS.
#include <netro/WatchpostCls.h>

#include "HttpTestKit.h"
#include "TlsTestKit.h"
#include "web/HttpPool.h"

namespace netro {
namespace {

// An HTTPS server in front of an HTTP server's handlers.
class HttpsServer {
 public:
  explicit HttpsServer(bool saysGoodbye = true) : server_(Rules(saysGoodbye)) {}

  HttpServer& Plain() { return plain_; }
  int Port() const { return server_.Port(); }
  std::size_t Handshakes() const { return server_.Handshakes(); }
  std::string Url(const std::string& path) const {
    return "https://localhost:" + std::to_string(Port()) + path;
  }

 private:
  testkit::TlsRules Rules(bool saysGoodbye) {
    testkit::TlsRules rules = GoodRules();
    rules.serve = [this, saysGoodbye](testkit::TlsPeer& peer) {
      plain_.ServeOn({[&](std::string& into) { return peer.Read(into); },
                      [&](const testkit::Response& answer) { return peer.Send(answer.bytes); }},
                     number_++);
      if (saysGoodbye) peer.CloseNotify();
    };
    return rules;
  }

  HttpServer plain_{true};
  std::atomic<std::size_t> number_{0};
  testkit::TlsServer server_;
};

// Answers CONNECT with one text after the other, and opens the tunnel behind a good one.
class TunnelProxy {
 public:
  TunnelProxy(std::vector<std::string> answers, int target)
      : answers_(std::move(answers)),
        target_(target),
        server_([this](auto& connection, auto number) { Serve(connection, number); }) {}

  int Port() const { return server_.Port(); }
  std::string Request(std::size_t number) {
    const std::scoped_lock lock(mutex_);
    return number < requests_.size() ? requests_[number] : "";
  }

 private:
  void Serve(testkit::Connection& connection, std::size_t number) {
    std::string request;
    while (request.find("\r\n\r\n") == std::string::npos) {
      if (!connection.Read(request)) return;
    }
    const std::string answer = answers_[std::min(number, answers_.size() - 1)];
    {
      const std::scoped_lock lock(mutex_);
      requests_.push_back(request);
    }
    connection.Send(answer);
    if (answer.starts_with("HTTP/1.1 200")) testkit::Relay(connection, target_);
  }

  const std::vector<std::string> answers_;
  const int target_;
  std::mutex mutex_;
  std::vector<std::string> requests_;
  testkit::LoopbackServer server_;
};

struct Https : testing::Test {
  Https() {
    server_.Plain().OnText("/", "hi");
    http_.Tls(provider_);
    http_.URL(server_.Url("/"));
  }
  ~Https() override { HttpPool::ForThread()->ThreadEnds(); }

  std::string Ask() { return AskBody(http_); }
  void Through(const TunnelProxy& proxy) {
    UseProxy(http_, ProxyPipe, proxy.Port());
    http_.ProxyUser("pu");
    http_.ProxyPassword("pp");
  }

  HttpsServer server_;
  std::shared_ptr<TlsProvider> provider_ = Trusting();
  HTTPCls http_;
};

TEST_F(Https, IsFetchedAndTold) {
  EXPECT_EQ(Ask(), "hi");
  EXPECT_EQ(http_.TlsInfo().protocol, "TLSv1.3");
  EXPECT_FALSE(http_.TlsInfo().names.empty());
  const auto request = server_.Plain().Requests().back();
  EXPECT_EQ(request.Field("Host"), "localhost:" + std::to_string(server_.Port()));
  EXPECT_EQ(http_.FinalURL(), server_.Url("/"));
  EXPECT_EQ(Ask(), "hi");
  EXPECT_TRUE(http_.TlsInfo().resumed);
}

TEST_F(Https, IsKeptForThoseOfTheSameProvider) {
  http_.KeepAlive(true);
  EXPECT_EQ(Ask(), "hi");
  EXPECT_EQ(Ask(), "hi");
  EXPECT_EQ(server_.Handshakes(), 1u);
  EXPECT_EQ(http_.TlsInfo().protocol, "TLSv1.3");
  http_.Tls(Trusting());
  EXPECT_EQ(Ask(), "hi");
  EXPECT_EQ(server_.Handshakes(), 2u);
  // Neither for another host at the same address, whose certificate nobody has seen.
  for (const char* host : {"localhost", "other.test"}) {
    http_.AddHostAddress(host, server_.Port(), "127.0.0.1");
    http_.URL("https://" + std::string(host) + ":" + std::to_string(server_.Port()) + "/");
    Ask();
  }
  EXPECT_EQ(http_.LastErr(), tlsWrongName);
  EXPECT_EQ(server_.Plain().Requests().size(), 4u);
}

class ForwardingProvider : public TlsProvider {
 public:
  explicit ForwardingProvider(std::shared_ptr<TlsProvider> to) : to_(std::move(to)) {}
  std::unique_ptr<TlsSession> NewSession(const std::string& host, std::int32_t port) override {
    return to_->NewSession(host, port);
  }

 private:
  std::shared_ptr<TlsProvider> to_;
};

// Connections are told apart by the address of the provider; another one must not get it.
TEST_F(Https, AKeptConnectionHoldsItsProvider) {
  auto provider = std::make_shared<ForwardingProvider>(provider_);
  const std::weak_ptr<TlsProvider> weak = provider;
  http_.KeepAlive(true);
  http_.Tls(std::move(provider));
  EXPECT_EQ(Ask(), "hi");
  http_.Tls(provider_);
  EXPECT_FALSE(weak.expired());
  HttpPool::ForThread()->ThreadEnds();
  EXPECT_TRUE(weak.expired());
}

TEST_F(Https, WhoCannotBeTrustedIsAskedNothing) {
  const TlsSettings strange;
  http_.Tls(MustProvide(strange));
  EXPECT_NE(Ask(), "");
  EXPECT_EQ(http_.LastErr(), tlsUnknownIssuer);
  http_.Tls(provider_);
  http_.AddHostAddress("other.test", server_.Port(), "127.0.0.1");
  http_.URL("https://other.test:" + std::to_string(server_.Port()) + "/");
  EXPECT_NE(Ask().find("localhost"), std::string::npos);  // the names it has
  EXPECT_EQ(http_.LastErr(), tlsWrongName);
  http_.Tls(nullptr);
  Ask();
  EXPECT_EQ(http_.LastErr(), 10043);
  EXPECT_TRUE(server_.Plain().Requests().empty());
}

// Anybody on the way can close a connection, but only the server can say that it was meant.
TEST_F(Https, ABodyThatEndsByCloseNeedsTheClosingAlert) {
  for (const bool says : {true, false}) {
    HttpsServer server(says);
    server.Plain().On("/", [](const auto&) {
      return HttpServer::Answer("500 x\r\nContent-Type: text/x\r\nConnection: close", "part");
    });
    http_.URL(server.Url("/"));
    const std::string answer = Ask();
    EXPECT_EQ(http_.LastErr(), says ? 0 : 10054);
    EXPECT_EQ(answer == "part", says);
  }
}

// The connection that was redirected is kept as what it is, not for where it leads.
TEST_F(Https, ARedirectLeadsFromHttp) {
  HttpServer plain(true);
  plain.On("/", [&](const auto&) {
    return HttpServer::Answer("301 x\r\nContent-Length: 0\r\nLocation: " + server_.Url("/"), "");
  });
  http_.URL(plain.Url("/"));
  http_.MaxRedirects(1);
  for (const bool keep : {false, true}) {
    http_.KeepAlive(keep);
    EXPECT_EQ(Ask(), "hi");
    EXPECT_FALSE(http_.TlsInfo().protocol.empty());
  }
}

TEST_F(Https, TunnelsThroughHttpProxies) {
  const std::string good = "HTTP/1.1 200 Connection established\r\n\r\n";
  const std::string basic = "HTTP/1.1 407 Who\r\nProxy-Authenticate: Basic realm=x\r\n\r\n";
  const std::string digest =
      "HTTP/1.1 407 Who\r\nProxy-Authenticate: Digest realm=\"x\", nonce=\"n\", qop=\"auth\"\r\n"
      "Content-Length: 3\r\n\r\nwho";
  const struct {
    const char* name;
    std::vector<std::string> answers;
    std::int32_t error, status;
    const char* credentials;  // of the last request to the proxy
  } kCases[] = {
      {"open", {good}, 0, 200, "an added line"},
      {"Basic", {basic, good}, 0, 200, "Basic cHU6cHA="},
      {"Digest", {digest, good}, 0, 200, "Digest username=\"pu\""},
      {"refused twice", {basic, basic}, 10061, 407, "Basic cHU6cHA="},
      {"forbidden", {"HTTP/1.1 403 No\r\n\r\nlong text"}, 10061, 403, ""},
      {"no HTTP", {"SSH-2.0\r\n\r\n"}, 10042, 0, ""},
      {"closed", {""}, 10054, 0, ""},
      {"something behind it", {good + "\x16\x03\x03"}, tlsEarlyBytes, 0, ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TunnelProxy proxy(c.answers, server_.Port());
    Through(proxy);
    http_.StandardDigest(true);
    http_.User("me");
    http_.ClearHeaders();
    if (std::string_view(c.name) == "open") {
      http_.AddHeader("Proxy-Authorization", "an added line");
    }
    const std::string answer = Ask();
    EXPECT_EQ(http_.LastErr(), c.error) << answer;
    EXPECT_EQ(http_.HTTPResult(), c.status);
    EXPECT_EQ(answer == "hi", c.error == 0);
    const std::string host = "localhost:" + std::to_string(server_.Port());
    const std::string request = proxy.Request(c.answers.size() - 1);
    EXPECT_TRUE(request.starts_with("CONNECT " + host + " HTTP/1.1\r\nHost: " + host + "\r\n"));
    EXPECT_NE(request.find(c.credentials), std::string::npos) << request;
    EXPECT_EQ(request.find("\r\nAuthorization"), std::string::npos);
    if (c.error != 0) continue;
    const auto inside = server_.Plain().Requests().back();
    EXPECT_TRUE(inside.head.starts_with("GET / HTTP/1.1"));
    EXPECT_EQ(inside.Field("Proxy-Authorization"), "");
  }
  http_.KeepAlive(true);
  TunnelProxy proxy({good}, server_.Port());
  Through(proxy);
  const std::size_t before = server_.Handshakes();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Ask(), "hi");
  EXPECT_EQ(server_.Handshakes(), before + 1);
  EXPECT_EQ(proxy.Request(1), "");
}

// The certificates of the tests have 30 days left, or 29 and some hours.
TEST_F(Https, AWatcherMindsTheDaysOfTheCertificate) {
  const TemporaryFolder folder;
  WatchpostCls post;
  post.OwnReports(true);
  post.SettingsName(folder / "watch.ini");
  WriteFile(folder / "watch.ini", "");
  EXPECT_FALSE(post.AddHost("none", server_.Url("/"), "https")) << "no TLS";
  post.Tls(Trusting());
  EXPECT_TRUE(post.AddHost("good", server_.Url("/"), "https 14d 200"));
  EXPECT_TRUE(post.AddHost("old", server_.Url("/"), "https 60d"));
  EXPECT_TRUE(post.StartObservation()) << post.LastErrMsg();
  EXPECT_TRUE(post.ObserveNow());
  EXPECT_TRUE(PumpUntil([&] { return post.GetStatus() != WatchpostBusy; }));
  const char* const kAnswers[] = {"Success: ", "Only "};
  for (std::int32_t i = 0; i < 2; ++i)
    EXPECT_TRUE(post.HostAt(i).LastAnswer.starts_with(kAnswers[i])) << post.HostAt(i).LastAnswer;
  EXPECT_NE(post.HostAt(0).LastAnswer.find(" days left"), std::string::npos);
}

}  // namespace
}  // namespace netro
