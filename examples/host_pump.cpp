// A blocking call that does not freeze its program. HTTPQuery waits half a second for a slow
// server; the function given to SetHostPump keeps a counter running meanwhile, as a host would keep
// its windows painted. The server lives on the same thread and is driven by the same waiting call.
//
// This is a self-check: it ends with 0 when the answer came and the counter moved as it should.
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>

#include <cstdio>
#include <string>

#include "LateServer.h"

int main() {
  LateServer server;
  if (!server.Start()) {
    return 1;
  }
  int turns = 0;
  netro::MessageLoop& loop = netro::MessageLoop::ForThisThread();
  loop.SetHostPump([&turns] { ++turns; });

  netro::HTTPCls http;
  http.URL(server.URL());
  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  loop.SetHostPump({});

  std::printf("%s\nThe host had %d turns while it waited.\n", answer.c_str(), turns);
  // At least one turn every 10 ms is promised; half of them allow for a busy machine.
  const bool alive = turns >= LateServer::kDelayMilliseconds / 10 / 2;
  return http.LastErr() == 0 && answer.ends_with("at last") && alive ? 0 : 1;
}
