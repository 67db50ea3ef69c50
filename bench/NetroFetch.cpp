// Fetching with HTTPCls, one object for all repetitions, or one for each task.

#include <netro/HTTPCls.h>
#ifdef NETRO_HAVE_TLS
#include <netro/tls/OpenSslTls.h>
#endif

#include <memory>

#include "bench/Fetch.h"
#include "bench/Tasks.h"

namespace netro::bench {
namespace {

std::shared_ptr<TlsProvider> ProviderFor(const Fetch& fetch) {
#ifdef NETRO_HAVE_TLS
  if (!fetch.trustFile.empty()) {
    TlsSettings settings;
    settings.trustFile = fetch.trustFile;
    settings.resumeSessions = fetch.resumes;
    std::string error;
    return MakeOpenSslProvider(settings, error);
  }
#endif
  return nullptr;
}

void Prepare(HTTPCls& http, const Fetch& fetch, const std::shared_ptr<TlsProvider>& tls) {
  http.Tls(tls);
  http.KeepAlive(fetch.keepAlive);
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
  Prepare(http, fetch, ProviderFor(fetch));
  std::string error;
  watch.Start();
  for (int i = 0; i < fetch.repetitions && error.empty(); ++i) {
    error = FetchOnce(http, fetch);
  }
  watch.Stop();
  return error;
}

std::string NetroFetchMany(const Fetch& fetch, Stopwatch& watch) {
  const auto tls = ProviderFor(fetch);
  watch.Start();
  std::string error = ShareOut(fetch.inFlight, fetch.repetitions, [&] {
    auto http = std::make_unique<HTTPCls>();
    Prepare(*http, fetch, tls);
    return [http = std::move(http), &fetch] { return FetchOnce(*http, fetch); };
  });
  watch.Stop();
  return error;
}

}  // namespace netro::bench
