// HTTPCls: settings, results and the entry to a query; the work is HttpQuery's.
#include <netro/HTTPCls.h>

#include <new>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "web/HttpQuery.h"

namespace netro {

HTTPCls::HTTPCls() : call_(std::make_shared<CallState>()) {}

HTTPCls::~HTTPCls() { call_->Die(); }

std::string HTTPCls::HTTPQuery(bool& Timeout) {
  Timeout = false;
  const BusyScope busy(call_);
  if (busy.Refused()) return SocketErrorText(kErrInProgress);
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

void HTTPCls::StopWaiting() { call_->Stop(SocketOwner::Module(socket_)->MessageLoop()); }

void HTTPCls::Kill() { StopWaiting(); }

}  // namespace netro
