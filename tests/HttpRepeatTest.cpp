// Redirects, connections that are kept, and request bodies that are sent again.
#include <netro/CookieJar.h>

#include "HttpTestKit.h"
#include "SocketTestKit.h"
#include "web/HttpAnswer.h"
#include "web/HttpPool.h"

namespace netro {
namespace {

std::string To(const std::string& status, const std::string& place) {
  return HttpServer::Answer(status + "\r\nContent-Length: 5\r\nLocation: " + place, "moved");
}

std::string StepsOf(const HTTPCls& http) {
  std::string steps;
  for (const HTTPMoment& moment : http.Timeline()) steps.append(moment.What).append(" ");
  return steps;
}

TEST(HttpRedirects, TheMethodAndTheBodyFollowTheStatus) {
  const struct {
    const char *status, *method, *next, *body;
  } kCases[] = {
      {"301 x", "POST", "GET", ""},        {"302 x", "POST", "GET", ""},
      {"303 x", "POST", "GET", ""},        {"307 x", "POST", "POST", "data"},
      {"308 x", "POST", "POST", "data"},   {"301 x", "PUT", "PUT", "data"},
      {"302 x", "DELETE", "DELETE", "data"}, {"303 x", "PUT", "GET", ""},
      {"303 x", "HEAD", "HEAD", ""},       {"301 x", "HEAD", "HEAD", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.status) + c.method);
    HttpServer server;
    server.On("/from", [&](const auto&) { return To(c.status, "/to?q=1"); });
    server.OnText("/to", "there");
    HttpClient http(server.Url("/from"));
    http.Method(c.method);
    http.AddHeader("Content-Type", "text/x");
    if (std::string_view(c.method) != "HEAD") http.PostData("data");
    http.MaxRedirects(1);
    EXPECT_EQ(AskBody(http), std::string_view(c.method) == "HEAD" ? "" : "there");
    EXPECT_EQ(http.FinalURL(), server.Url("/to?q=1"));
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[1].method, c.next);
    EXPECT_EQ(requests[1].body, c.body);
    if (std::string_view(c.method) == "POST") {
      EXPECT_EQ(requests[1].Field("Content-Type"), *c.body != '\0' ? "text/x" : "");
    }
  }
}

TEST(HttpRedirects, EndWhereTheyMust) {
  HttpServer server;
  server.On("/loop", [](const auto&) { return To("302 x", "loop"); });
  server.On("/odd", [](const auto&) { return To("302 x", "ftp://h/secret?token=t0p"); });
  server.On("/https", [](const auto&) { return To("302 x", "https://127.0.0.1/"); });
  server.On("/none", [](const auto&) {
    return HttpServer::Answer("302 x\r\nContent-Type: text/x\r\nContent-Length: 2", "hi");
  });
  server.On("/choice", [](const auto&) {
    return HttpServer::Answer("300 x\r\nContent-Type: text/x\r\nLocation: /a\r\nContent-Length: 2",
                              "hi");
  });
  const struct {
    const char* path;
    std::int32_t most, error, status;
    std::size_t requests;
  } kCases[] = {{"/loop", 3, 10062, 0, 4}, {"/loop", 0, 0, 302, 1},  {"/odd", 9, 10042, 0, 1},
                {"/https", 9, 10043, 0, 1}, {"/none", 9, 0, 302, 1}, {"/choice", 9, 0, 300, 1}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.path);
    const std::size_t before = server.Requests().size();
    HttpClient http(server.Url(c.path));
    http.KeepInMemory(true);
    http.MaxRedirects(c.most);
    EXPECT_EQ(AskBody(http).find("t0p"), std::string::npos);
    EXPECT_EQ(http.LastErr(), c.error);
    EXPECT_EQ(http.HTTPResult(), c.status);
    EXPECT_EQ(server.Requests().size() - before, c.requests);
  }
}

// What a server puts into its texts reaches no terminal.
TEST(HttpRedirects, ControlCharactersAreNotTold) {
  HttpServer server;
  server.On("/from", [](const auto&) { return To("302 \x1b[2J" + std::string(9'000, 'x'), "/a \x1b[2J?\x1b"); });
  server.OnText("/a%20%1B[2J", "there");
  HttpClient http(server.Url("/from"));
  http.MaxRedirects(1);
  EXPECT_EQ(AskBody(http), "there");
  EXPECT_EQ(http.FinalURL(), server.Url("/a%20%1B[2J?%1B"));
  for (const HTTPMoment& moment : http.Timeline()) {
    EXPECT_EQ(moment.Detail.find('\x1b'), std::string::npos) << moment.What;
    EXPECT_LT(moment.Detail.size(), 5'000u);
  }
}

// Another port is another origin already.
TEST(HttpRedirects, SecretsStayWithTheirOrigin) {
  HttpServer here;
  HttpServer there;
  here.On("/far", [&](const auto&) { return To("307 x", there.Url("/in?token=t0p")); });
  here.On("/near", [&](const auto&) { return To("307 x", "/in"); });
  const auto challenge = [](const testkit::HttpRequest& request) {
    const bool has = !request.Field("Authorization").empty();
    return HttpServer::Answer(std::string(has ? "200 x" : "401 x\r\nWWW-Authenticate: Basic a=b") +
                                  "\r\nContent-Type: text/x\r\nContent-Length: 2",
                              "hi");
  };
  here.On("/in", challenge);
  there.On("/in", challenge);
  for (const bool inUrl : {false, true}) {
    const auto ask = [&](const std::string& path) {
      HTTPCls http;
      const std::string url = here.Url(path);
      http.URL(inUrl ? "http://me:pw@" + url.substr(7) : url);
      http.User(inUrl ? "" : "me");
      http.Password(inUrl ? "" : "pw");
      http.SendAuthAfterChallenge(true);
      http.AddHeader("X-Api-Key", "s3cret");
      http.AddHeader("Cookie", "a=b");
      http.AddHeader("Accept", "text/x");
      http.MaxRedirects(3);
      AskBody(http);
      for (const HTTPMoment& moment : http.Timeline()) {
        EXPECT_EQ(moment.Detail.find("t0p"), std::string::npos) << moment.Detail;
        EXPECT_EQ(moment.Detail.find("pw"), std::string::npos) << moment.Detail;
      }
      return http.HTTPResult();
    };
    EXPECT_EQ(ask("/near"), 200);
    EXPECT_EQ(here.Requests().back().Field("X-Api-Key"), "s3cret");
    EXPECT_EQ(ask("/far"), 401);
    const auto last = there.Requests().back();
    EXPECT_EQ(last.Field("Authorization") + last.Field("X-Api-Key") + last.Field("Cookie"), "");
    EXPECT_EQ(last.Field("Accept"), "text/x");
  }
}

TEST(HttpRedirects, ABodyThatCannotBeReadAgainEndsThem) {
  HttpServer server;
  server.On("/from", [](const auto&) { return To("307 x", "/to"); });
  server.OnText("/to", "there");
  for (const bool again : {true, false}) {
    std::string left = "once";
    HttpClient http(server.Url("/from"));
    http.MaxRedirects(1);
    http.BodyFunction(
        [&](std::span<std::uint8_t> room) {
          const std::size_t size = left.copy(reinterpret_cast<char*>(room.data()), room.size());
          left.erase(0, size);
          return static_cast<std::ptrdiff_t>(size);
        },
        std::nullopt, again ? std::function<bool()>([&] { return left = "once", true; }) : nullptr);
    AskBody(http);
    EXPECT_EQ(http.LastErr(), again ? 0 : 10022);
    if (again) {
      EXPECT_EQ(server.Requests().back().body, "once");
    }
  }
}

TEST(HttpCookies, AreTakenOnTheWayAndGoWhereTheyBelong) {
  HttpServer server;
  server.On("/login", [](const auto&) {
    return HttpServer::Answer(
        "302 x\r\nSet-Cookie: sid=1; Path=/\r\nSet-Cookie: no=1; Domain=example.com\r\n"
        "Location: /home\r\nContent-Length: 0",
        "");
  });
  server.OnText("/home", "home");
  const auto jar = std::make_shared<CookieJar>();
  HttpClient http(server.Url("/login"));
  http.MaxRedirects(1);
  http.Cookies(jar);
  EXPECT_EQ(AskBody(http), "home");
  EXPECT_EQ(server.Requests().back().Field("Cookie"), "sid=1");
  EXPECT_EQ(jar->Count(), 1u);
}

struct HttpKept : testing::Test {
  HttpKept() {
    server_.OnText("/", "hi");
    server_.On("/close", [](const auto&) {
      return HttpServer::Answer("200 x\r\nContent-Type: text/x\r\nConnection: close\r\n"
                                "Content-Length: 2", "hi");
    });
    server_.On("/more", [](const auto&) {
      return HttpServer::Answer("200 x\r\nContent-Type: text/x\r\nContent-Length: 2", "hi!");
    });
    server_.On("/401", [](const testkit::HttpRequest& request) {
      const bool has = !request.Field("Authorization").empty();
      return HttpServer::Answer(
          std::string(has ? "200 x" : "401 x\r\nWWW-Authenticate: Basic a=b") +
              "\r\nContent-Type: text/x\r\nContent-Length: 2", "hi");
    });
    server_.On("/gone", [this](const auto&) {
      const bool now = gone_.exchange(false);
      return now ? "" : HttpServer::Answer("200 x\r\nContent-Type: text/x\r\nContent-Length: 2",
                                           "hi");
    });
  }
  ~HttpKept() override { HttpPool::ForThread()->ThreadEnds(); }

  std::string Get(const std::string& path, HTTPCls& http) {
    http.URL(server_.Url(path));
    http.KeepAlive(true);
    return AskBody(http);
  }
  std::string Get(const std::string& path) {
    HTTPCls http;
    return Get(path, http);
  }

  std::atomic<bool> gone_ = false;
  HttpServer server_{true};
};

TEST_F(HttpKept, OneConnectionServesManyObjects) {
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Get("/"), "hi");
  EXPECT_EQ(server_.Connections(), 1u);
  HttpClient http(server_.Url("/"));
  EXPECT_EQ(AskBody(http), "hi");  // without KeepAlive
  EXPECT_EQ(server_.Connections(), 2u);
  EXPECT_EQ(server_.Requests()[0].head.find("\r\n\r\n"), std::string::npos);
}

TEST_F(HttpKept, ARefusalAndItsAnswerShareOne) {
  HTTPCls http;
  http.User("u");
  http.Password("p");
  http.SendAuthAfterChallenge(true);
  Get("/", http);
  EXPECT_EQ(Get("/401", http), "hi");
  EXPECT_EQ(http.HTTPResult(), 200);
  EXPECT_EQ(server_.Connections(), 1u);
}

// The connection that a redirect came on still leads to where it came from, and over http.
TEST_F(HttpKept, ARedirectElsewhereGoesElsewhere) {
  HttpServer there(true);
  there.OnText("/", "there");
  server_.On("/away", [&](const auto&) { return To("302 x", there.Url("/")); });
  for (int i = 0; i < 2; ++i) {
    HTTPCls http;
    http.MaxRedirects(1);
    EXPECT_EQ(Get("/away", http), "there");
  }
  EXPECT_EQ(server_.Connections() + there.Connections(), 2u);
  EXPECT_EQ(server_.Requests().size(), 2u);
}

TEST_F(HttpKept, WhatIsNotSafeIsNotKept) {
  for (const char* path : {"/close", "/more"}) {
    SCOPED_TRACE(path);
    const std::size_t before = server_.Connections();
    EXPECT_EQ(Get(path), "hi");
    EXPECT_EQ(Get(path), "hi");
    EXPECT_EQ(server_.Connections() - before, 2u);
  }
  HTTPCls other;  // other credentials
  other.User("u");
  const std::size_t before = server_.Connections();
  Get("/");
  Get("/", other);
  EXPECT_EQ(server_.Connections() - before, 2u);
}

TEST_F(HttpKept, OneThatIsGoneIsReplacedWhereThatIsSafe) {
  for (const char* method : {"GET", "PUT", "POST"}) {
    SCOPED_TRACE(method);
    Get("/");
    gone_ = true;
    HTTPCls http;
    http.Method(method);
    const std::string answer = Get("/gone", http);
    const bool safe = std::string_view(method) != "POST";
    EXPECT_EQ(http.LastErr(), safe ? 0 : 10054);
    EXPECT_EQ(answer, safe ? "hi" : "");
    EXPECT_EQ(StepsOf(http).find("repeated") != std::string::npos, safe);
    gone_ = false;
  }
}

TEST_F(HttpKept, TheyAreClosedAfterAWhileAndWhenThereAreTooMany) {
  Get("/");
  EXPECT_EQ(HttpPool::ForThread()->Count(), 1u);
  AdvanceClockForTests(std::chrono::seconds(16));
  EXPECT_TRUE(PumpUntil([] { return HttpPool::ForThread()->Count() == 0; }));
  for (int i = 0; i < 40; ++i) {
    HTTPCls http;
    http.User(std::to_string(i));
    Get("/", http);
  }
  EXPECT_EQ(HttpPool::ForThread()->Count(), 32u);
}

TEST_F(HttpKept, TheTimelineTellsIt) {
  HTTPCls http;
  Get("/", http);
  EXPECT_EQ(StepsOf(http), "request lookup attempt connected sent first byte answer end ");
  Get("/", http);
  EXPECT_EQ(StepsOf(http), "request reused sent first byte answer end ");
}

class NoSink final : public HttpBodySink {
 public:
  void BeginBody() override {}
  bool WriteBody(std::span<const std::uint8_t>) override { return false; }
};

TEST(HttpConnection, IsUsableAfterAWholeAnswerOnly) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string sized = "Content-Length: 2\r\n\r\nhi";
  const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n2\r\nhi\r\n0\r\n";
  const struct {
    std::string answer;
    bool usable;
    bool head = false;
    bool keepChunks = false;
  } kCases[] = {
      {ok + sized, true},
      {ok + sized + "X", false},
      {ok + "Content-Length: 2\r\n\r\nh", false},
      {ok + "Content-Length: 0\r\n\r\n", true},
      {ok + "\r\nhi", false},
      {ok + "Connection: close\r\n" + sized, false},
      {ok + "Connection: X,Close\r\nConnection: keep-alive\r\n" + sized, false},
      {"HTTP/1.0 200 OK\r\n" + sized, false},
      {"HTTP/1.0 200 OK\r\nConnection: Keep-Alive\r\n" + sized, true},
      {ok + "Content-Length: 2\r\n" + chunked.substr(ok.size()) + "\r\n", false},
      {"HTTP/1.0 200 OK\r\nConnection: Keep-Alive\r\n" + chunked.substr(ok.size()) + "\r\n", false},
      {chunked, false},
      {chunked + "\r\n", true},
      {chunked + "T: 1\r\n\r\n", true},
      {chunked + "T: 1\r\n\r\nX", false},
      {chunked + std::string(300000, 'x'), false},
      {chunked + "\r\n", true, false, true},
      {ok + "Content-Length: 9\r\n\r\n", true, true},
      {ok + "\r\n", true, true},
      {"HTTP/1.1 204 No\r\n\r\n", true},
      {"HTTP/1.1 101 Go\r\nContent-Length: 0\r\n\r\n", false},
      {"HTTP/1.1 100 Go\r\n\r\n" + ok + sized, true},
  };
  for (const auto& c : kCases)
    for (const std::size_t piece : {c.answer.size(), std::size_t{1}}) {
      SCOPED_TRACE(c.answer.substr(0, 200));
      NoSink sink;
      HttpAnswer answer({c.head, !c.keepChunks}, sink);
      const std::span bytes(reinterpret_cast<const std::uint8_t*>(c.answer.data()),
                            c.answer.size());
      for (std::size_t at = 0; at < bytes.size(); at += piece)
        answer.Feed(bytes.subspan(at, piece));
      EXPECT_EQ(answer.LeavesConnectionUsable(), c.usable);
    }
}

}  // namespace
}  // namespace netro
