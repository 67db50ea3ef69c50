// What is shown of a fetch while it runs.

#include "get/FetchEvents.h"

#include <strings.h>

#include <cstdio>
#include <string_view>

#include "get/Retry.h"
#include "get/UrlText.h"
#include "terminal/Encoding.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kNewsInterval = 100;  // milliseconds

bool SameName(const std::string& a, const char* b) { return ::strcasecmp(a.c_str(), b) == 0; }

/// A field's value as others may read it over the user's shoulder.
std::string ShownValue(const std::string& name, const std::string& value) {
  for (const char* secret : {"Set-Cookie", "Set-Cookie2", "Authorization", "Proxy-Authorization",
                             "Cookie", "Authentication-Info", "WWW-Authenticate"}) {
    if (!SameName(name, secret)) continue;
    return secret[0] == 'W' ? value.substr(0, value.find(' ')) + " ***" : "***";
  }
  return SameName(name, "Location") ? WithoutTokens(WithoutCredentials(value)) : value;
}

}  // namespace

FetchEvents::FetchEvents(HTTPCls& http, const Fetch& fetch, const GetOptions& options,
                         ProgressLines& lines)
    : http_(http),
      fetch_(fetch),
      options_(options),
      lines_(lines) {
  if (options.verbose) timer_.emplace(kNewsInterval, [this] { TellNews(); });
  http.Events(this);
}

void FetchEvents::Begin(bool isLast) {
  isLast_ = isLast;
  told_ = 0;
}

void FetchEvents::End(HttpResult& result) {
  TellNews();
  result.isPrinted = isPrinted_;
  result.isReaderGone = isReaderGone_;
}

void FetchEvents::Status(HTTPCls&, const std::string&) { TellNews(); }

void FetchEvents::Body(HTTPCls& http, std::span<const std::uint8_t> block) {
  if (!fetch_.isStreamed || !IsWanted()) return;
  isPrinted_ = true;
  Print({reinterpret_cast<const char*>(block.data()), block.size()});
  if (Flush()) return;
  isReaderGone_ = true;
  http.StopWaiting();
}

bool FetchEvents::IsWanted() const {
  const std::int32_t status = http_.HTTPResult();
  return (!options_.fail || status < 400) && (isLast_ || !IsPassingStatus(status));
}

void FetchEvents::TellNews() {
  const auto& moments = http_.Timeline();
  if (!options_.verbose || told_ >= moments.size()) return;
  std::string text;
  for (; told_ < moments.size(); ++told_) text += TextOf(moments[told_]);
  lines_.MakeRoomFor([&] { std::fputs(text.c_str(), stderr); });
}

// "* 0.3 connected 127.0.0.1:80", "> GET http://...", "< HTTP/1.1 200 OK" and its fields
std::string FetchEvents::TextOf(const HTTPMoment& moment) const {
  const std::string begin = fetch_.label.empty() ? "" : OnOneLine(fetch_.label) + ": ";
  const std::string detail = OnOneLine(moment.Detail);
  if (moment.What == "request") return begin + "> " + detail + "\n";
  if (moment.What != "answer") {
    char time[32];
    std::snprintf(time, sizeof time, "%.1f ms ", moment.Milliseconds);
    return begin + "* " + time + std::string(moment.What) + (detail.empty() ? "" : " " + detail) +
           "\n";
  }
  std::string text = begin + "< " + detail + "\n";
  for (const auto& [name, value] : http_.Headers()) {
    text += begin + "< " + OnOneLine(name + ": " + ShownValue(name, value)) + "\n";
  }
  return text;
}

}  // namespace netro::tool
