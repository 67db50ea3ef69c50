// A host with a GLib main loop, which watches the library's loop with g_unix_fd_add.
//
// This is a self-check: 20 pages and 100 names are asked for at once, see ManyCalls.h.
#include <glib-unix.h>
#include <netro/MessageLoop.h>

#include "ManyCalls.h"

namespace {

gboolean PumpLibrary(gint, GIOCondition, gpointer) {
  netro::MessageLoop::ForThisThread().PumpMessages();
  return G_SOURCE_CONTINUE;
}

gboolean Tick(gpointer calls) {
  static_cast<ManyCalls*>(calls)->Tick();
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main() {
  GMainLoop* const mainLoop = g_main_loop_new(nullptr, FALSE);
  g_unix_fd_add(netro::MessageLoop::ForThisThread().LoopFd(), G_IO_IN, PumpLibrary, nullptr);

  ManyCalls calls([mainLoop] { g_main_loop_quit(mainLoop); });
  g_timeout_add(ManyCalls::kTick.count(), Tick, &calls);
  g_main_loop_run(mainLoop);
  g_main_loop_unref(mainLoop);
  return calls.Result();
}
