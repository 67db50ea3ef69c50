// A test of a function that fetches a page: the server answers, is cut off, and is silent for a
// minute, which takes no time. No network, no fixed port, no framework.
#include <netro/HTTPCls.h>
#include <netro/testkit/Clock.h>
#include <netro/testkit/HttpServer.h>

#include <iostream>

// What is tested.
std::string Greeting(const std::string& url) {
  netro::HTTPCls http;
  http.URL(url);
  http.TimeOutSeconds(60);
  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  if (http.LastErr() != 0) return "error " + std::to_string(http.LastErr());
  return answer.substr(static_cast<std::size_t>(http.HeaderLen()) + 4);
}

int main() {
  using namespace netro::testkit;
  HttpServer server;
  server.OnText("/", "hello");
  server.On("/cut", [](const HttpRequest&) {
    return HttpServer::Answer("200 OK\r\nContent-Type: text/plain\r\nContent-Length: 9", "hel");
  });
  server.On("/silent", [](const HttpRequest&) { return Response("", After::Stay); });

  bool good = Greeting(server.Url("/")) == "hello";
  good = Greeting(server.Url("/cut")) == "error 10054" && good;
  const FastClock fast;
  good = Greeting(server.Url("/silent")) == "error 10002" && good;
  std::cout << (good ? "passed" : "failed") << '\n';
  return good ? 0 : 1;
}
