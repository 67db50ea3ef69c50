// Fetches a URL and prints the answer: status line, header and body.
#include <netro/HTTPCls.h>

#include <iostream>

int main(int argc, char** argv) {
  netro::HTTPCls http;
  http.URL(argc > 1 ? argv[1] : "http://example.com/");
  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  std::cout << answer << '\n';
  if (http.SaveAsFile()) {
    std::cout << "The body is in " << http.Filename() << '\n';
  }
  return http.LastErr() == 0 ? 0 : 1;
}
