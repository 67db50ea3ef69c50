// Calls without tasks in sight: Async tells a callback, and a coroutine awaits. Three pages are
// fetched and two names looked up from servers that take a second for each answer.
//
// This is a self-check: it ends with 0 when all answers came, those of the callbacks side by side.
#include <netro/Async.h>
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>

#include <coroutine>
#include <cstdio>
#include <exception>
#include <string>

#include "LateServers.h"

namespace {

/// A coroutine that begins at once and goes by itself.
struct Detached {
  struct promise_type {
    Detached get_return_object() { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
};

std::string Fetch(const std::string& url) {
  netro::HTTPCls http;
  http.URL(url);
  bool timeout = false;
  return http.HTTPQuery(timeout);
}

std::string Resolve(const std::string& name, const std::string& server) {
  netro::SocketCls socket;
  socket.DNSURL(server);
  return socket.DNSLookup(name);
}

/// One after the other, each step written where it happens.
Detached ResolveTwo(const LateServers& servers, int& right) {
  for (const int number : {1, 2}) {
    const std::string address =
        co_await netro::Await([&] { return Resolve(LateServers::Name(number), servers.DNSURL()); });
    std::printf("%s is %s\n", LateServers::Name(number).c_str(), address.c_str());
    right += address == LateServers::Address(number) ? 1 : 0;
  }
  netro::MessageLoop::ForThisThread().QuitLoop();
}

}  // namespace

int main() {
  const LateServers servers;
  int right = 0;
  ResolveTwo(servers, right);
  for (const int number : {1, 2, 3}) {
    netro::Async([url = servers.URL(number)] { return Fetch(url); },
                 [number, &right](const std::string& answer) {
                   std::printf("%s\n", answer.c_str());
                   right += answer.ends_with(LateServers::Page(number)) ? 1 : 0;
                 });
  }
  // The pages take a second, and so does each name: the callbacks are over before the coroutine is.
  netro::MessageLoop::ForThisThread().RunLoop();
  return right == 5 ? 0 : 1;
}
