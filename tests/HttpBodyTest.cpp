// Bodies of requests from files, functions and forms; where bodies of answers go, and their limits.
#include <sys/stat.h>

#include <cstdio>

#include "HttpTestKit.h"
#include "SocketTestKit.h"

namespace netro {
namespace {

std::string Ask(HTTPCls& http) {
  bool timeout = false;
  return http.HTTPQuery(timeout);
}

std::string Ok(const std::string& fields, const std::string& body) {
  return HttpServer::Answer("200 OK\r\n" + fields + "Content-Length: " + std::to_string(body.size()),
                            body);
}

HTTPBodyFunction Giving(std::string& left, std::size_t piece) {
  return [&left, piece](std::span<std::uint8_t> room) {
    const std::size_t most = std::min(room.size(), piece);
    const std::size_t size = left.copy(reinterpret_cast<char*>(room.data()), most);
    left.erase(0, size);
    return static_cast<std::ptrdiff_t>(size);
  };
}

TEST(HttpUpload, ComesFromEverySource) {
  HttpServer server;
  server.OnText("/", "ok");
  const TemporaryFolder folder;
  const std::string large(3'000'000, 'x');
  WriteFile(folder / "small.txt", "from a file");
  WriteFile(folder / "large.bin", large);
  std::string function = large;
  const struct {
    const char* name;
    std::function<void(HTTPCls&)> prepare;
    std::string method, body, length, expect;
  } cases[] = {
      {"small file", [&](HTTPCls& http) { http.BodyFile(folder / "small.txt"); }, "POST",
       "from a file", "11", ""},
      {"large file, PUT",
       [&](HTTPCls& http) {
         http.Method("PUT");
         http.BodyFile(folder / "large.bin");
       },
       "PUT", large, "3000000", "100-continue"},
      {"function", [&](HTTPCls& http) { http.BodyFunction(Giving(function, 70'000)); }, "POST",
       large, "", "100-continue"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    HttpClient http(server.Url("/"));
    c.prepare(http);
    Ask(http);
    EXPECT_EQ(http.HTTPResult(), 200);
    const auto request = server.Requests().back();
    EXPECT_EQ(request.method, c.method);
    EXPECT_TRUE(request.body == c.body);
    EXPECT_EQ(request.Field("Content-Length"), c.length);
    EXPECT_EQ(request.Field("Expect"), c.expect);
  }
}

TEST(HttpUpload, AFormHoldsFieldsAndFiles) {
  HttpServer server;
  server.OnText("/", "ok");
  const TemporaryFolder folder;
  WriteFile(folder / "a.txt", "file text");
  HttpClient http(server.Url("/"));
  http.AddFormField("name", "va\r\nlue");
  http.AddFormFile("file", folder / "a.txt", "text/x-own");
  Ask(http);
  const auto request = server.Requests().back();
  const std::string type = request.Field("Content-Type");
  const std::string boundary = "--" + type.substr(type.find("boundary=") + 9);
  EXPECT_TRUE(request.body.starts_with(boundary));
  EXPECT_NE(request.body.find("name=\"name\"\r\n\r\nva\r\nlue\r\n"), std::string::npos);
  EXPECT_NE(request.body.find("text/x-own\r\n\r\nfile text\r\n"), std::string::npos);
  http.AddFormFile("gone", folder / "nothing");
  EXPECT_NE(Ask(http).find("nothing"), std::string::npos);
  EXPECT_EQ(http.LastErr(), 20002);
}

TEST(HttpUpload, AnAnswerInPlaceOfContinueIsTheAnswer) {
  const std::tuple<std::string, std::int32_t, std::size_t> kCases[] = {
      {"HTTP/1.1 413 No\r\nContent-Length: 0\r\n\r\n", 413, 1},
      {"HTTP/1.1 417 No\r\nContent-Length: 0\r\n\r\n", 200, 2},
  };
  for (const auto& [answer, status, connections] : kCases) {
    SCOPED_TRACE(answer);
    BytesServer server(
        {{testkit::AwaitText("\r\n\r\n"), testkit::Send(answer)},
         {testkit::AwaitText("xyz"), testkit::Send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")}});
    std::string left = "abcxyz";
    HttpClient http(LoopbackUrl(server.Port()));
    http.BodyFunction(Giving(left, 3), std::nullopt, [&] { return left = "abcxyz", true; });
    Ask(http);
    EXPECT_EQ(http.HTTPResult(), status);
    EXPECT_EQ(server.Connections(), connections);
    EXPECT_EQ(server.Received(0).find("xyz"), std::string::npos);
  }
}

TEST(HttpUpload, ASourceThatGivesUpEndsTheQuery) {
  HttpServer server;
  server.OnText("/", "ok");
  HttpClient http(server.Url("/"));
  http.BodyFunction([](std::span<std::uint8_t>) { return std::ptrdiff_t{-1}; });
  Ask(http);
  EXPECT_EQ(http.LastErr(), 20125);
  std::string left = "short";
  http.BodyFunction(Giving(left, 9), 9);
  EXPECT_NE(Ask(http), "");
  EXPECT_EQ(http.LastErr(), 10022);
  EXPECT_TRUE(server.Requests().empty());
}

TEST(HttpOptions, WhatCannotBeSentIsNamed) {
  const std::pair<std::function<void(HTTPCls&)>, const char*> kCases[] = {
      {[](HTTPCls& http) { http.Method("GE T"); }, "Method"},
      {[](HTTPCls& http) { http.Method("GET\r\nX: y"); }, "Method"},
      {[](HTTPCls& http) { http.Method("CONNECT"); }, "CONNECT"},
      {[](HTTPCls& http) { http.Resume(true); }, "Resume"},
      {[](HTTPCls& http) { http.AddHostAddress("h", 80, "nowhere"); }, "AddHostAddress"},
  };
  for (const auto& [prepare, name] : kCases) {
    HttpClient http("http://127.0.0.1:1/");
    prepare(http);
    EXPECT_NE(Ask(http).find(name), std::string::npos) << name;
    EXPECT_EQ(http.LastErr(), 10022) << name;
  }
}

struct Gather : HTTPClsEvents {
  void Body(HTTPCls& http, std::span<const std::uint8_t> bytes) override {
    text.append(bytes.begin(), bytes.end());
    if (act) act(http);
  }
  std::string text;
  std::function<void(HTTPCls&)> act;
};

TEST(HttpAnswerBody, GoesWhereItIsWanted) {
  HttpServer server;
  server.On("/", [](const auto&) { return Ok("Content-Type: application/json\r\n", "{\"a\": 1}"); });
  for (const bool toEvents : {false, true}) {
    Gather gather;
    HTTPCls http;
    http.Events(&gather);
    http.URL(server.Url("/"));
    http.KeepInMemory(!toEvents);
    http.BodyToEvents(toEvents);
    const std::string answer = Ask(http);
    EXPECT_EQ(answer.ends_with("{\"a\": 1}"), !toEvents);
    EXPECT_EQ(gather.text, "{\"a\": 1}");
    EXPECT_EQ(http.BodyLen(), 8);
    EXPECT_FALSE(http.SaveAsFile());
    EXPECT_EQ(http.Header("content-TYPE"), "application/json");
    EXPECT_EQ(http.Headers().size(), 2u);
  }
}

TEST(HttpBodyExceptions, TheEventMayDeleteStopAndThrow) {
  HttpServer server;
  server.OnText("/", std::string(200'000, 'x'));
  for (int what = 0; what < 3; ++what) {
    Gather gather;
    auto http = std::make_unique<HTTPCls>();
    gather.act = [&](HTTPCls& self) {
      if (what == 0) http.reset();
      if (what == 1) self.StopWaiting();
      if (what == 2) throw 7;
    };
    http->Events(&gather);
    http->URL(server.Url("/"));
    try {
      Ask(*http);
      EXPECT_NE(what, 2);
    } catch (int) {
      EXPECT_EQ(what, 2);
    }
    if (what == 1) {
      EXPECT_EQ(http->LastErr(), 9999);
    }
    if (what == 2) {
      gather.act = nullptr;
      const std::string answer = Ask(*http);
      EXPECT_EQ(answer.size(), 200'000u + static_cast<std::size_t>(http->HeaderLen()) + 4);
    }
  }
}

TEST(HttpAnswerBody, NoMoreThanAllowedIsKeptInMemory) {
  HttpServer server;
  server.OnText("/", std::string(100'001, 'x'));
  server.On("/endless", [](const auto&) {
    return HttpServer::Answer("200 OK\r\nContent-Type: text/x", std::string(300'000, 'x'));
  });
  for (const char* path : {"/", "/endless"}) {
    HttpClient http(server.Url(path));
    http.MaxBodyLen(100'000);
    EXPECT_NE(Ask(http).find("MaxBodyLen"), std::string::npos);
    EXPECT_EQ(http.LastErr(), 10040);
    http.MaxBodyLen(0);
    Ask(http);
    EXPECT_EQ(http.LastErr(), 0);
  }
}

TEST(HttpAnswerBody, AFileIsReplacedWhenItIsWhole) {
  const TemporaryFolder folder;
  const std::string file = folder / "file";
  const std::tuple<std::string, std::int32_t, const char*> kCases[] = {
      {Ok("", "new"), 0, "new"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nnew", 10054, "old"},
      {HttpServer::Answer("404 No\r\nContent-Length: 3", "new"), 0, "old"},
      {HttpServer::Answer("302 No\r\nLocation: /a\r\nContent-Length: 3", "new"), 0, "old"},
      {"nonsense", 10042, "old"},
      {Ok("", ""), 0, ""},
  };
  for (const auto& [answer, error, content] : kCases) {
    SCOPED_TRACE(answer);
    WriteFile(file, "old");
    HttpServer server;
    server.On("/", [&](const auto&) { return answer; });
    HttpClient http(server.Url("/"));
    http.SaveAsFile(true);
    http.Filename(file);
    http.ReplaceWhenWhole(true);
    Ask(http);
    EXPECT_EQ(http.LastErr(), error);
    EXPECT_EQ(ReadFile(file), content);
    const auto files = std::filesystem::directory_iterator(folder.Path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
  }
}

// An event that waits lets in what comes next, and one that throws leaves the rest of its block.
TEST(HttpAnswerBody, KeepsItsOrderWhenAnEventWaits) {
  std::string body;
  for (int i = 0; i < 20'000; ++i) body += std::to_string(i) + ' ';
  std::string chunks;
  for (std::size_t at = 0; at < body.size(); at += 1'000) {
    const std::string chunk = body.substr(at, 1'000);
    char size[8];
    std::snprintf(size, sizeof size, "%zx\r\n", chunk.size());
    chunks += size + chunk + "\r\n";
  }
  struct Waiter : HTTPClsEvents {
    void Body(HTTPCls&, std::span<const std::uint8_t> data) override {
      got.append(data.begin(), data.end());
      if (++events < 5) MessageLoop::ForThisThread().Sleep(std::chrono::milliseconds(5));
    }
    std::string got;
    int events = 0;
  };
  for (const bool chunked : {false, true}) {
    HttpServer server;
    server.On("/", [&](const auto&) {
      const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: text/x\r\n";
      return chunked ? head + "Transfer-Encoding: chunked\r\n\r\n" + chunks + "0\r\n\r\n"
                     : head + "\r\n" + body;
    });
    Waiter waiter;
    HTTPCls http;
    http.Events(&waiter);
    http.URL(server.Url("/"));
    EXPECT_TRUE(Ask(http).ends_with("\r\n\r\n" + body));
    EXPECT_EQ(waiter.got, body);
  }
}

// The first query is cut; the second one goes on, or does not.
TEST(HttpAnswerBody, APartIsContinuedOnlyIfItIsOne) {
  const std::string cut =
      "HTTP/1.1 200 OK\r\nETag: \"1\"\r\nContent-Length: 6\r\n\r\nabc";
  const std::string rest = "Content-Range: bytes 3-5/6\r\nContent-Length: 3\r\n";
  const struct {
    std::string first, second;
    const char* asked;  // of the second request
    std::int32_t error;
    std::string content;
  } kCases[] = {
      {cut, "HTTP/1.1 206 P\r\nETag: \"1\"\r\n" + rest + "\r\ndef", "bytes=3-", 0, "abcdef"},
      {cut, Ok("ETag: \"2\"\r\n", "other"), "bytes=3-", 0, "other"},
      {cut, "HTTP/1.1 206 P\r\nETag: \"2\"\r\n" + rest + "\r\ndef", "bytes=3-", 10042, ""},
      {cut, "HTTP/1.1 206 P\r\nContent-Range: bytes 2-4/6\r\nContent-Length: 3\r\n\r\ndef",
       "bytes=3-", 10042, ""},
      {cut, "HTTP/1.1 206 P\r\nContent-Range: bytes 3-4/6\r\nContent-Length: 2\r\n\r\nde",
       "bytes=3-", 10054, ""},
      {cut, "HTTP/1.1 206 P\r\nContent-Range: bytes 3-5/6\r\nTransfer-Encoding: chunked\r\n\r\n"
            "2\r\nde\r\n0\r\n\r\n", "bytes=3-", 10054, ""},
      {"HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc",
       "HTTP/1.1 206 P\r\n" + rest + "\r\ndef", "", 10042, ""},
      {"HTTP/1.1 200 OK\r\nETag: W/\"1\"\r\nContent-Length: 6\r\n\r\nabc", Ok("", "whole"), "", 0,
       "whole"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.second);
    const TemporaryFolder folder;
    std::atomic<int> asked = 0;
    HttpServer server;
    server.On("/", [&](const auto&) { return asked++ == 0 ? c.first : c.second; });
    HttpClient http(server.Url("/"));
    http.SaveAsFile(true);
    http.Filename(folder / "file");
    http.Resume(true);
    Ask(http);
    EXPECT_EQ(http.LastErr(), 10054);
    EXPECT_EQ(ReadFile(folder / "file"), "");
    Ask(http);
    EXPECT_EQ(http.LastErr(), c.error);
    EXPECT_EQ(server.Requests().back().Field("Range"), c.asked);
    EXPECT_EQ(server.Requests().back().Field("If-Range"), *c.asked != '\0' ? "\"1\"" : "");
    EXPECT_EQ(ReadFile(folder / "file"), c.content);
    if (c.error == 0) {
      EXPECT_EQ(http.BodyLen(), c.content.size());
    }
    for (const char* part : {"file.part", "file.part.info"})
      EXPECT_EQ(std::filesystem::exists(folder / part), c.error != 0 && *c.asked != '\0') << part;
  }
}

// What is no file stays, and nothing is asked of the server's answer for it.
TEST(HttpAnswerBody, APipeIsNotReplaced) {
  for (const bool resume : {false, true}) {
    const TemporaryFolder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_TRUE(MakePipe(pipe));
    HttpServer server;
    server.OnText("/", "new");
    HttpClient http(server.Url("/"));
    http.SaveAsFile(true);
    http.Filename(pipe);
    http.ReplaceWhenWhole(true);
    http.Resume(resume);
    Ask(http);
    EXPECT_EQ(http.LastErr(), 20017);
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    EXPECT_FALSE(std::filesystem::exists(pipe + ".part"));
  }
}

TEST(HttpLimits, IdleAndConnectTimeouts) {
  BytesServer silent({{testkit::AwaitText("\r\n\r\n"),
                       testkit::Send("HTTP/1.1 200 OK\r\nContent-Type: text/x\r\n\r\nab"),
                       testkit::Stay()}});
  HttpClient http(LoopbackUrl(silent.Port()));
  http.IdleTimeout(7);
  http.TimeOutSeconds(1'000);
  struct Late : HTTPClsEvents {
    void Status(HTTPCls&, const std::string&) override {
      AdvanceClockForTests(std::chrono::seconds(6));
      MessageLoop::ForThisThread().PostTask([] { AdvanceClockForTests(std::chrono::seconds(6)); });
    }
  } late;
  http.Events(&late);
  {
    const Takes time(seconds(0), seconds(30));
    Query(http, true);
  }
  EXPECT_EQ(http.LastErr(), 10002);

  const testkit::HangingPort hanging;
  HttpClient other(LoopbackUrl(hanging.Port()));
  other.TimeOutSeconds(1'000);
  other.ConnectTimeout(5);
  const std::int32_t timer = MessageLoop::ForThisThread().SetTimer(
      1, [] { AdvanceClockForTests(std::chrono::seconds(1)); });
  BytesServer mute({{testkit::Stay()}});
  for (const ProxyTypeEnum proxy : {NoProxy, ProxySocks5NoAuth}) {
    const Takes time(seconds(0), std::chrono::seconds(100));
    UseProxy(other, proxy, mute.Port());
    Ask(other);
    EXPECT_EQ(other.LastErr(), 10002);
  }

  BytesServer endless(
      {{testkit::AwaitText("\r\n\r\n"),
        testkit::Send("HTTP/1.1 302 On\r\nLocation: /\r\nContent-Length: 0\r\n\r\n")}});
  HttpClient whole(LoopbackUrl(endless.Port()));
  whole.MaxRedirects(1'000'000);
  whole.TotalTimeout(std::chrono::milliseconds(20'050));
  EXPECT_EQ(whole.TotalTimeout(), 21);
  EXPECT_EQ(Ask(whole),
            "The whole query has taken longer than TotalTimeout, 20.050 seconds.");
  EXPECT_EQ(whole.LastErr(), 10002);
  MessageLoop::ForThisThread().KillTimer(timer);
}

TEST(HttpLimits, ARateIsKept) {
  HttpServer server;
  server.OnText("/", std::string(60'000, 'x'));
  HttpClient http(server.Url("/"));
  http.MaxBytesPerSecond(200'000);
  const Takes time(std::chrono::milliseconds(150));
  Ask(http);
  EXPECT_EQ(http.BodyLen(), 60'000);
}

TEST(HttpOptions, AnAddressIsUsedInPlaceOfALookup) {
  HttpServer server;
  server.OnText("/", "hi");
  HttpClient http("http://Somewhere.invalid:" + std::to_string(server.Port()) + "/");
  http.AddHostAddress("somewhere.INVALID", server.Port(), "127.0.0.1");
  EXPECT_TRUE(Ask(http).ends_with("hi"));
  EXPECT_EQ(server.Requests().back().Field("Host"), "Somewhere.invalid:" + std::to_string(server.Port()));
}

}  // namespace
}  // namespace netro
