// The outcome of an HTTPQuery.

#include "get/HttpResult.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>

namespace netro::tool {
namespace {

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(" \t\r"), text.size());
  return text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

void TakeAnswer(const HTTPCls& http, std::string answer, HttpResult& result) {
  const auto headerLength = static_cast<std::size_t>(http.HeaderLen());
  result.status = http.HTTPResult();
  result.reason = http.HTTPResultMsg();
  result.header = answer.substr(0, headerLength);
  result.contentType = http.ContentType();
  result.retryAfter = http.RetryAfter();
  result.bodyLength = http.BodyLen();
  result.receivedBytes = http.ReceivedBytes();
  if (http.SaveAsFile()) {
    result.file = http.Filename();
  } else if (answer.size() > headerLength + 4) {
    answer.erase(0, headerLength + 4);
    result.body = std::move(answer);
  }
}

}  // namespace

bool HttpResult::Has(std::string_view what) const {
  return std::ranges::find(timeline, what, &HTTPMoment::What) != timeline.end();
}

HttpResult Query(HTTPCls& http) {
  HttpResult result;
  const std::string ownFile = http.Filename();
  const auto begin = std::chrono::steady_clock::now();
  std::string answer = http.HTTPQuery(result.timedOut);
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();

  result.errorNumber = http.LastErr();
  result.finalUrl = http.FinalURL();
  result.timeline = http.Timeline();
  result.tls = http.TlsInfo();
  if (result.IsAnswer()) {
    TakeAnswer(http, std::move(answer), result);
    result.isTemporary = !result.file.empty() && result.file != ownFile;
  } else {
    result.errorText = answer.empty() ? "The connection ended without an answer" : answer;
  }
  return result;
}

HeaderFields FieldsOf(std::string_view header) {
  HeaderFields fields;
  while (!header.empty()) {
    const std::string_view line = header.substr(0, header.find('\n'));
    header.remove_prefix(std::min(line.size() + 1, header.size()));
    const std::size_t colon = line.find(':');
    if (colon != line.npos && !line.starts_with("HTTP/")) {
      fields.emplace_back(line.substr(0, colon), Trimmed(line.substr(colon + 1)));
    }
  }
  return fields;
}

void ReadBody(const HttpResult& result, const std::function<bool(std::string_view)>& take) {
  if (result.file.empty()) {
    take(result.body);
    return;
  }
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(result.file.c_str(), "rb"),
                                                             std::fclose);
  const int problem = errno;
  DiscardBody(result);  // the open file stays readable, and nothing is left behind whatever happens
  if (file == nullptr) {
    if (result.bodyLength == 0) {
      return;  // an empty body need not have made a file
    }
    throw std::system_error(problem, std::generic_category(), "cannot read " + result.file);
  }
  char block[65536];
  while (const std::size_t size = std::fread(block, 1, sizeof block, file.get())) {
    if (!take({block, size})) return;
  }
  if (std::ferror(file.get()) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot read " + result.file);
  }
}

std::string WholeBody(const HttpResult& result) {
  std::string body;
  ReadBody(result, [&body](std::string_view block) {
    body += block;
    return true;
  });
  return body;
}

void DiscardBody(const HttpResult& result) {
  if (result.isTemporary) std::remove(result.file.c_str());
}

}  // namespace netro::tool
