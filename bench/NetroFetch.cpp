// Fetching with HTTPCls, one object for all repetitions, or one for each task.

#include <netro/HTTPCls.h>

#include <memory>

#include "bench/Fetch.h"
#include "bench/Tasks.h"

namespace netro::bench {
namespace {

void Prepare(HTTPCls& http, const Fetch& fetch) {
  http.URL(fetch.url);
  http.TimeOutSeconds(fetch.timeoutSeconds);
  http.RemoveChunkHeader(!fetch.keepFraming);
  if (!fetch.file.empty()) {
    http.SaveAsFile(true);
    http.Filename(fetch.file);
  }
}

std::string FetchOnce(HTTPCls& http, const Fetch& fetch) {
  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  if (http.LastErr() != 0) {
    return "error " + std::to_string(http.LastErr()) + ", " + answer;
  }
  if (http.BodyLen() != static_cast<double>(fetch.bodyBytes)) {
    return "a body of " + std::to_string(http.BodyLen()) + " bytes";
  }
  return {};
}

}  // namespace

std::string NetroFetch(const Fetch& fetch, Stopwatch& watch) {
  HTTPCls http;
  Prepare(http, fetch);
  std::string error;
  watch.Start();
  for (int i = 0; i < fetch.repetitions && error.empty(); ++i) {
    error = FetchOnce(http, fetch);
  }
  watch.Stop();
  return error;
}

std::string NetroFetchMany(const Fetch& fetch, Stopwatch& watch) {
  watch.Start();
  std::string error = ShareOut(fetch.inFlight, fetch.repetitions, [&] {
    auto http = std::make_unique<HTTPCls>();
    Prepare(*http, fetch);
    return [http = std::move(http), &fetch] { return FetchOnce(*http, fetch); };
  });
  watch.Stop();
  return error;
}

}  // namespace netro::bench
