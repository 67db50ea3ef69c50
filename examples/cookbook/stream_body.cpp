// Counts the lines of a document of any size, which is kept nowhere: stream_body URL
#include <netro/HTTPCls.h>

#include <algorithm>
#include <iostream>

struct LineCounter : netro::HTTPClsEvents {
  long lines = 0;
  void Body(netro::HTTPCls&, std::span<const std::uint8_t> block) override {
    lines += std::count(block.begin(), block.end(), std::uint8_t{'\n'});
  }
};

int main(int argc, char** argv) {
  LineCounter counter;
  netro::HTTPCls http;
  http.Events(&counter);
  http.URL(argc > 1 ? argv[1] : "http://example.com/");
  http.BodyToEvents(true);
  http.TimeOutSeconds(3600);                   // for the whole answer
  http.IdleTimeout(std::chrono::seconds(30));  // but never so long without a byte
  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  std::cout << counter.lines << " lines\n";
  if (http.LastErr() != 0) std::cerr << answer << '\n';
  return http.LastErr() == 0 ? 0 : 1;
}
