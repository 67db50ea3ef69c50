// A query to a server that never answers: the connection is taken by the system's queue and nobody
// accepts it. The call runs into its time-out of two seconds and must sleep meanwhile.

#include "bench/WaitCases.h"

#include <netro/HTTPCls.h>

#include <string>

#include "bench/Cases.h"
#include "bench/Fetch.h"
#include "bench/Process.h"

namespace netro::bench {
namespace {

constexpr int kSeconds = 2;

Fetch SilentFetch() {
  std::uint16_t port = 0;
  ListenOnLoopback(port);  // stays open until the measuring process ends
  Fetch fetch;
  fetch.url = "http://127.0.0.1:" + std::to_string(port) + "/";
  fetch.timeoutSeconds = kSeconds;
  return fetch;
}

std::string NetroWait(Stopwatch& watch) {
  HTTPCls http;
  http.URL(SilentFetch().url);
  http.TimeOutSeconds(kSeconds);
  bool timeout = false;
  watch.Start();
  const std::string answer = http.HTTPQuery(timeout);
  watch.Stop();
  return timeout ? "" : "no time-out but " + std::to_string(http.LastErr()) + ", " + answer;
}

#ifdef NETRO_HAVE_CURL
/// CurlFetch stops its watch only after a success, so the end is taken here.
std::string CurlWait(Stopwatch& watch) {
  const std::string error = CurlFetch(SilentFetch(), watch);
  watch.Stop();
  return error.empty() ? "an answer came" : "";
}
#endif

}  // namespace

void AddWaitCases() {
  const std::string name = "wait of 2 s";
#ifdef NETRO_HAVE_CURL
  AddCase({name, "libcurl", "calls", 1, "", CurlWait});
#endif
  AddCase({name, "netro", "calls", 1, name + "/libcurl", NetroWait});
}

}  // namespace netro::bench
