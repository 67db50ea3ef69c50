// Posts JSON to a web service and prints what it answers: post_json URL JSON
#include <netro/HTTPCls.h>

#include <iostream>

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  netro::HTTPCls http;
  http.URL(argv[1]);
  http.QueryType(netro::QueryPost);
  http.AddHeader("Content-Type", "application/json");
  http.AddHeader("Accept", "application/json");
  http.PostData(argv[2]);
  http.KeepInMemory(true);  // what is no text goes to a file otherwise

  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  if (http.LastErr() != 0) {
    std::cerr << answer << '\n';
    return 1;
  }
  std::cout << http.HTTPResult() << ' '
            << answer.substr(static_cast<std::size_t>(http.HeaderLen()) + 4) << '\n';
  return http.HTTPResult() < 300 ? 0 : 1;
}
