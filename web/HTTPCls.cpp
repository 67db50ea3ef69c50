// HTTPCls: settings, results and the entry to a query; the work is HttpQuery's.
#include <netro/HTTPCls.h>

#include <new>

#include "platform/CallState.h"
#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "support/HttpDate.h"
#include "web/HttpHead.h"
#include "web/HttpQuery.h"

namespace netro {

HTTPCls::HTTPCls()
    : call_(std::make_shared<CallState>()),
      module_(SocketModule::ForThread()),
      socket_(std::make_unique<SocketCls>()) {}

HTTPCls::~HTTPCls() { call_->Die(); }

std::string HTTPCls::HTTPQuery(bool& Timeout) {
  Timeout = false;
  const BusyScope busy(call_);
  if (busy.Refused()) {
    if (!busy.WrongThread()) lastErr_ = kErrInProgress;
    return SocketErrorText(busy.Error());
  }
  const auto call = call_;
  try {
    HttpQuery query(*this);
    return query.Run(Timeout);
  } catch (const std::bad_alloc&) {
    if (call->alive) lastErr_ = kErrNoBuffers;
    return SocketErrorText(kErrNoBuffers);
  }
}

void HTTPCls::AddHeader(std::string HeaderName, std::string HeaderValue) {
  settings_.headers.emplace_back(std::move(HeaderName), std::move(HeaderValue));
}

void HTTPCls::ClearHeaders() { settings_.headers.clear(); }

std::string HTTPCls::Header(const std::string& Name) const {
  return HttpHead(header_).Field(Name).value_or("");
}

std::vector<std::pair<std::string, std::string>> HTTPCls::Headers() const {
  return HttpHead(header_).Fields();
}

std::int64_t HTTPCls::RetryAfter() const {
  const auto seconds =
      ReadRetryAfter(Header("Retry-After"), std::chrono::floor<std::chrono::seconds>(SystemTime()));
  return seconds ? seconds->count() : -1;
}

void HTTPCls::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void HTTPCls::Kill() { StopWaiting(); }

}  // namespace netro
