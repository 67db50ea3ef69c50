// A host with an Asio io_context, which watches the library's loop with a stream_descriptor.
//
// This is a self-check: 20 pages and 100 names are asked for at once, see ManyCalls.h.
#include <netro/MessageLoop.h>

#include <asio.hpp>

#include "ManyCalls.h"

namespace {

void WatchLibrary(asio::posix::stream_descriptor& library) {
  library.async_wait(asio::posix::stream_descriptor::wait_read, [&library](std::error_code error) {
    if (error) return;
    netro::MessageLoop::ForThisThread().PumpMessages();
    WatchLibrary(library);
  });
}

void TickForEver(asio::steady_timer& timer, ManyCalls& calls) {
  timer.expires_at(timer.expiry() + ManyCalls::kTick);
  timer.async_wait([&timer, &calls](std::error_code error) {
    if (error) return;
    calls.Tick();
    TickForEver(timer, calls);
  });
}

}  // namespace

int main() {
  asio::io_context context;
  // The descriptor stays the library's: it is released and not closed.
  asio::posix::stream_descriptor library(context, netro::MessageLoop::ForThisThread().LoopFd());
  WatchLibrary(library);

  ManyCalls calls([&context] { context.stop(); });
  asio::steady_timer timer(context, ManyCalls::kTick);
  TickForEver(timer, calls);
  context.run();
  library.release();
  return calls.Result();
}
