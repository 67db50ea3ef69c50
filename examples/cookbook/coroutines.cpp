// Two coroutines, each of which fetches one page after the other: coroutines URL URL
#include <netro/Async.h>
#include <netro/HTTPCls.h>

#include <iostream>

struct Detached {
  struct promise_type {
    Detached get_return_object() { return {}; }
    std::suspend_never initial_suspend() { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
};

int StatusOf(const std::string& url) {
  netro::HTTPCls http;
  http.URL(url);
  bool timeout = false;
  http.HTTPQuery(timeout);
  return http.HTTPResult();
}

Detached Visit(std::string first, std::string second, int& running) {
  const int a = co_await netro::Await([&] { return StatusOf(first); });
  const int b = co_await netro::Await([&] { return StatusOf(second); });
  std::cout << a << ' ' << b << '\n';
  if (--running == 0) netro::MessageLoop::ForThisThread().QuitLoop();
}

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  int running = 2;
  Visit(argv[1], argv[2], running);
  Visit(argv[2], argv[1], running);
  netro::MessageLoop::ForThisThread().RunLoop();
  return running;
}
