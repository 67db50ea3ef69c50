// Asks again while a server is overloaded, after as long as it wants: retry_later URL
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>

#include <algorithm>
#include <iostream>

int main(int argc, char** argv) {
  netro::HTTPCls http;
  http.URL(argc > 1 ? argv[1] : "http://example.com/");
  std::int64_t pause = 1;
  for (int tries = 1; tries <= 5; ++tries) {
    bool timeout = false;
    http.HTTPQuery(timeout);
    const bool again = http.LastErr() != 0 || http.HTTPResult() == 429 || http.HTTPResult() >= 500;
    if (!again) {
      std::cout << http.HTTPResult() << " at try " << tries << '\n';
      return 0;
    }
    if (http.RetryAfter() >= 0) pause = std::min<std::int64_t>(http.RetryAfter(), 600);
    std::cerr << "again in " << pause << " s\n";
    // Not std::this_thread::sleep_for: timers and sockets of this thread go on.
    netro::MessageLoop::ForThisThread().Sleep(std::chrono::seconds(pause));
    pause *= 2;
  }
  std::cout << "given up\n";
  return 1;
}
