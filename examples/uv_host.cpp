// A host with libuv's loop, which watches the library's loop with a uv_poll_t.
//
// This is a self-check: 20 pages and 100 names are asked for at once, see ManyCalls.h.
#include <netro/MessageLoop.h>
#include <uv.h>

#include "ManyCalls.h"

int main() {
  uv_loop_t* const loop = uv_default_loop();
  uv_poll_t library;
  uv_poll_init(loop, &library, netro::MessageLoop::ForThisThread().LoopFd());
  uv_poll_start(&library, UV_READABLE,
                [](uv_poll_t*, int, int) { netro::MessageLoop::ForThisThread().PumpMessages(); });

  ManyCalls calls([loop] { uv_stop(loop); });
  uv_timer_t timer;
  uv_timer_init(loop, &timer);
  timer.data = &calls;
  const auto tick = [](uv_timer_t* ticked) { static_cast<ManyCalls*>(ticked->data)->Tick(); };
  uv_timer_start(&timer, tick, ManyCalls::kTick.count(), ManyCalls::kTick.count());
  uv_run(loop, UV_RUN_DEFAULT);
  return calls.Result();
}
