// QueryTimeCLS: settings, results and the entry to a query; the work is TimeQuery's.
#include <netro/QueryTimeCLS.h>

#include <new>

#include "platform/ErrorNumbers.h"
#include "socket/HostLookup.h"
#include "socket/SocketErrors.h"
#include "web/TimeQuery.h"

namespace netro {
namespace {

std::string ErrorText(std::int32_t error) {
  switch (error) {
    case kTimeNoTransmitTime:
      return "Time server sent no usable transmit time.";
    case kTimeZero:
      return "Time server sent a zero time.";
    case kTimeWrongLength:
      return "Time server sent a reply of unexpected length.";
    default:
      return SocketErrorText(error);
  }
}

}  // namespace

QueryTimeCLS::QueryTimeCLS()
    : module_(SocketModule::ForThread()), call_(std::make_shared<CallState>()) {}

QueryTimeCLS::~QueryTimeCLS() { call_->Die(); }

void QueryTimeCLS::SetLastErr(std::int32_t error, std::string text) {
  lastErr_ = error;
  lastErrMsg_ = std::move(text);
}

bool QueryTimeCLS::QueryTime() {
  const BusyScope busy(call_);
  if (busy.Refused()) return false;
  const auto call = call_;
  try {
    const std::int32_t error = TimeQuery(*this).Run();
    if (call->alive) SetLastErr(error, error == 0 ? std::string() : ErrorText(error));
    return error == 0;
  } catch (const std::bad_alloc&) {
    if (call->alive) SetLastErr(kErrNoBuffers, {});
    return false;
  }
}

std::string QueryTimeCLS::TranslateLastErrNr(std::int32_t LastErr) const {
  return ErrorText(LastErr);
}

std::string QueryTimeCLS::DNSLookup(const std::string& Address) {
  const BusyScope busy(call_);
  if (busy.Refused()) return {};
  const auto call = call_;
  LookupAnswer answer =
      DefaultHostLookup().Lookup(Address, {settings_.dnsURL, settings_.preference},
                                 CancelMark(module_, call_), TimePoint::max());
  if (!call->alive) return {};
  SetLastErr(answer.error, LookupErrorText(answer.error));
  return std::move(answer.text);
}

void QueryTimeCLS::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void QueryTimeCLS::Kill() { StopWaiting(); }

}  // namespace netro
