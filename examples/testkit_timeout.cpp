// A test of what a program does when a server never answers. It would take a minute; with a clock
// that runs a thousand times as fast it takes less than a second.
//
// This is a self-check: it ends with 0 when the query has ended by its time-out, in no time.
#include <netro/HTTPCls.h>
#include <netro/testkit/Clock.h>
#include <netro/testkit/HttpServer.h>

#include <chrono>
#include <cstdio>

int main() {
  using namespace netro::testkit;
  HttpServer server;
  server.On("/", [](const HttpRequest&) { return Response("", After::Stay); });

  netro::HTTPCls http;
  http.URL(server.Url("/"));
  http.TimeOutSeconds(60);
  const auto begin = std::chrono::steady_clock::now();
  bool timeout = false;
  {
    const FastClock clock;
    http.HTTPQuery(timeout);
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  std::printf("timed out: %d, after %.2f s\n", timeout ? 1 : 0, took.count());
  return timeout && took.count() < 20 ? 0 : 1;
}
