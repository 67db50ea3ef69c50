// Fetching with HTTPCls, one object for all repetitions.

#include <netro/HTTPCls.h>

#include "bench/Fetch.h"

namespace netro::bench {

std::string NetroFetch(const Fetch& fetch, Stopwatch& watch) {
  HTTPCls http;
  http.URL(fetch.url);
  http.TimeOutSeconds(fetch.timeoutSeconds);
  http.RemoveChunkHeader(!fetch.keepFraming);
  if (!fetch.file.empty()) {
    http.SaveAsFile(true);
    http.Filename(fetch.file);
  }
  watch.Start();
  for (int i = 0; i < fetch.repetitions; ++i) {
    bool timeout = false;
    const std::string answer = http.HTTPQuery(timeout);
    if (http.LastErr() != 0) {
      return "error " + std::to_string(http.LastErr()) + ", " + answer;
    }
    if (http.BodyLen() != static_cast<double>(fetch.bodyBytes)) {
      return "a body of " + std::to_string(http.BodyLen()) + " bytes";
    }
  }
  watch.Stop();
  return {};
}

}  // namespace netro::bench
