// The smallest program that needs the component testkit.
#include <netro/HTTPCls.h>
#include <netro/testkit/Clock.h>
#include <netro/testkit/HttpServer.h>

int main() {
  netro::testkit::HttpServer server;
  server.OnText("/", "hello");
  const netro::testkit::FastClock clock(2);
  netro::HTTPCls http;
  http.URL(server.Url("/"));
  bool timeout = false;
  http.HTTPQuery(timeout);
  return http.HTTPResult() == 200 ? 0 : 1;
}
