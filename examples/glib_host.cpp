// A host with a GLib main loop. The library's loop is watched with g_unix_fd_add, so that events
// arrive from g_main_loop_run; and SetHostPump turns GLib's context during a blocking call, so that
// GLib's own sources (here a ticking clock) run on meanwhile.
//
// This is a self-check: it ends with 0 when the answer came and the clock ticked during the wait.
#include <glib-unix.h>
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>

#include <cstdio>
#include <string>

#include "LateServer.h"

namespace {

/// GLib asks the callbacks whether they want to be called again.
constexpr gboolean kKeep = G_SOURCE_CONTINUE;

struct Host {
  GMainLoop* mainLoop = g_main_loop_new(nullptr, FALSE);
  int ticks = 0;
  std::string url;
  bool passed = false;
};

gboolean PumpLibrary(gint, GIOCondition, gpointer) {
  netro::MessageLoop::ForThisThread().PumpMessages();
  return kKeep;
}

gboolean Tick(gpointer host) {
  ++static_cast<Host*>(host)->ticks;
  return kKeep;
}

/// Runs once, as a click on a button would: it blocks, and the clock ticks on.
gboolean Query(gpointer data) {
  Host& host = *static_cast<Host*>(data);
  netro::HTTPCls http;
  http.URL(host.url);
  bool timeout = false;
  const int before = host.ticks;
  const std::string answer = http.HTTPQuery(timeout);
  const int ticks = host.ticks - before;
  std::printf("%s\nThe clock ticked %d times while the call waited.\n", answer.c_str(), ticks);
  // A tick is due every 20 ms; half of them allow for a busy machine.
  host.passed = answer.ends_with("at last") && ticks >= LateServer::kDelayMilliseconds / 20 / 2;

  // Back in the main loop, the library's events must arrive through the watched descriptor.
  netro::MessageLoop::ForThisThread().PostTask([&host] { g_main_loop_quit(host.mainLoop); });
  return G_SOURCE_REMOVE;
}

gboolean GiveUp(gpointer data) {
  Host& host = *static_cast<Host*>(data);
  host.passed = false;
  g_main_loop_quit(host.mainLoop);
  return G_SOURCE_REMOVE;
}

}  // namespace

int main() {
  Host host;
  LateServer server;
  if (!server.Start()) {
    return 1;
  }
  host.url = server.URL();
  netro::MessageLoop& loop = netro::MessageLoop::ForThisThread();
  loop.SetHostPump([] { g_main_context_iteration(nullptr, FALSE); });

  g_unix_fd_add(loop.LoopFd(), G_IO_IN, PumpLibrary, nullptr);
  g_timeout_add(20, Tick, &host);
  g_timeout_add_seconds(10, GiveUp, &host);
  g_idle_add(Query, &host);
  g_main_loop_run(host.mainLoop);
  g_main_loop_unref(host.mainLoop);
  return host.passed ? 0 : 1;
}
