// How a URL of "netro get" is fetched.

#include "get/Perform.h"

#include <netro/Localization.h>
#include <netro/MessageLoop.h>

#include <algorithm>
#include <chrono>
#include <string_view>

#include "get/BodyFile.h"
#include "get/FetchEvents.h"
#include "get/Retry.h"
#include "get/UrlText.h"
#include "terminal/Stopwatch.h"
#include "terminal/Terminal.h"
#include "terminal/TimeLimit.h"

namespace netro::tool {
namespace {

void Prepare(HTTPCls& http, const Fetch& fetch, const GetOptions& options,
             const GetRequest& request) {
  http.URL(fetch.url);
  Apply(http, request.request);
  Apply(http, request.logins, fetch.url);
  Apply(http, request.way, fetch.proxy);
  http.Tls(request.tls);
  http.RemoveChunkHeader(!options.keepChunks);
  http.BodyToEvents(fetch.isStreamed);
  http.KeepInMemory(fetch.file.empty());
  if (fetch.isStreamed) http.MaxBodyLen(0);  // which is for memory, as for what was unpacked
  if (fetch.file.empty() || !CanBeReplaced(fetch.file)) return;
  http.Filename(fetch.file);
  http.SaveAsFile(true);
  http.ReplaceWhenWhole(true);
  http.Resume(options.resume);
  if (request.request.codings != nullptr) http.MaxBodyLen(0);
}

/// A line has few columns; all begin alike.
std::string LineLabel(const Fetch& fetch) {
  const std::size_t scheme = fetch.label.find("://");
  return scheme == std::string::npos ? fetch.label : fetch.label.substr(scheme + 3);
}

Progress ProgressOf(const HTTPCls& http) {
  const double header = http.HeaderLen() == 0 ? 0 : http.HeaderLen() + 4;
  return {http.ReceivedBytes() - header, http.WaitForDataLen()};
}

std::string RetryText(const Fetch& fetch, std::chrono::seconds pause, std::int32_t tries) {
  const HttpResult& result = fetch.result;
  const std::string what = result.IsAnswer() ? "the server answered " +
                                                   std::to_string(result.status) + " " +
                                                   result.reason
                                             : result.errorText;
  return (fetch.label.empty() ? "" : fetch.label + ": ") + what + "; try " +
         std::to_string(fetch.attempts + 1) + " of " + std::to_string(tries) + " follows in " +
         std::to_string(pause.count()) + " s";
}

constexpr std::int32_t kCancelled = 9999;

/// Waits in short pieces: a Ctrl-C that comes before the call that it should end is seen then.
std::int32_t Pause(std::chrono::milliseconds left, const Stopped& stopped) {
  constexpr std::chrono::milliseconds kPiece(100);
  std::int32_t error = 0;
  for (; error == 0 && left.count() > 0; left -= kPiece) {
    if (stopped()) return kCancelled;
    error = MessageLoop::ForThisThread().Sleep(std::min(left, kPiece));
  }
  return stopped() ? kCancelled : error;
}

/// Waits for the next try; false when there is to be none.
bool AwaitNextTry(Fetch& fetch, const GetRequest& request, ProgressLines& lines,
                  const Stopped& stopped) {
  const std::int32_t tries = request.way.options.retries + 1;
  if (fetch.attempts >= tries || fetch.result.isPrinted || !IsPassing(fetch.result)) return false;
  const auto pause = PauseBefore(fetch.attempts + 1, fetch.result);
  if (!pause) return false;
  lines.MakeRoomFor([&] { ShowMessage(RetryText(fetch, *pause, tries)); });
  const std::int32_t error = Pause(*pause, stopped);
  constexpr std::int32_t kTimedOut = 10002;
  if (error != 0 && error != kTimedOut) {
    DiscardBody(fetch.result);
    fetch.result = CancelledResult();
  }
  return error == 0;
}

void TryAll(Fetch& fetch, const GetOptions& options, const GetRequest& request,
            ProgressLines& lines, const Stopped& stopped) {
  HTTPCls http;
  Prepare(http, fetch, options, request);
  FetchEvents events(http, fetch, options, lines);
  const ProgressLines::Line line(lines, LineLabel(fetch), [&http] { return ProgressOf(http); });
  const Stopwatch watch;
  do {
    DiscardBody(fetch.result);
    ++fetch.attempts;
    const bool isLast = fetch.attempts > request.way.options.retries;
    events.Begin(isLast);
    fetch.result = Query(http);
    events.End(fetch.result);
  } while (AwaitNextTry(fetch, request, lines, stopped));
  fetch.result.seconds = watch.Seconds();
}

}  // namespace

void Perform(Fetch& fetch, const GetOptions& options, const GetRequest& request,
             ProgressLines& lines, const Stopped& stopped) {
  const auto work = [&] { TryAll(fetch, options, request, lines, stopped); };
  if (options.way.maxTime == 0) return work();
  const std::chrono::duration<double> limit(options.way.maxTime);
  RunWithin(std::chrono::ceil<std::chrono::milliseconds>(limit), work);
}

}  // namespace netro::tool
