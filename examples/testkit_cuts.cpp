// A test of a program that downloads: does it notice that an answer is cut, or reset, or comes in
// pieces? The server plays exact bytes.
//
// This is a self-check: it ends with 0 when the program under test has passed.
#include <netro/HTTPCls.h>
#include <netro/testkit/BytesServer.h>

#include <cstdio>
#include <string>

namespace {

/// The program under test: the page's text, or why there is none.
std::string Download(const std::string& url) {
  netro::HTTPCls http;
  http.URL(url);
  http.TimeOutSeconds(5);
  bool timeout = false;
  http.HTTPQuery(timeout);
  if (http.LastErr() != 0) return "failed: " + std::to_string(http.LastErr());
  return "status " + std::to_string(http.HTTPResult()) + ", " +
         std::to_string(static_cast<int>(http.BodyLen())) + " bytes";
}

}  // namespace

int main() {
  using namespace netro::testkit;
  const std::string head =
      "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 5\r\n\r\n";
  const Step request = AwaitText("\r\n\r\n");
  const struct {
    const char* name;
    Script script;
    const char* wanted;
  } cases[] = {
      {"whole", {request, Send(head + "hello")}, "status 200, 5 bytes"},
      {"in three pieces", {request, Send(head + "hello", {4, 20})}, "status 200, 5 bytes"},
      {"after a while",
       {request, Pause(std::chrono::milliseconds(50)), Send(head + "hello")},
       "status 200, 5 bytes"},
      {"cut", {request, Send(head + "hel"), HalfClose()}, "failed: 10054"},
      {"reset", {request, Send(head + "hel"), Reset()}, "failed: 10054"},
  };
  int failures = 0;
  for (const auto& test : cases) {
    BytesServer server({test.script});
    const std::string told = Download("http://127.0.0.1:" + std::to_string(server.Port()) + "/");
    std::printf("%s: %s\n", test.name, told.c_str());
    failures += told != test.wanted ? 1 : 0;
    failures += server.Received(0).starts_with("GET / HTTP/1.1\r\n") ? 0 : 1;
  }
  return failures;
}
