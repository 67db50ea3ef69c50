// Fetches a page, follows redirects, and prints the body: get_page URL
#include <netro/HTTPCls.h>

#include <iostream>

int main(int argc, char** argv) {
  netro::HTTPCls http;
  http.URL(argc > 1 ? argv[1] : "http://example.com/");
  http.MaxRedirects(10);
  http.KeepInMemory(true);
  http.TotalTimeout(std::chrono::seconds(60));

  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  if (http.LastErr() != 0) {
    std::cerr << answer << " (" << http.LastErr() << ")\n";
    return 1;
  }
  std::cerr << http.HTTPResult() << ' ' << http.HTTPResultMsg() << " from " << http.FinalURL()
            << '\n';
  std::cout << answer.substr(static_cast<std::size_t>(http.HeaderLen()) + 4);
  return http.HTTPResult() == 200 ? 0 : 1;
}
