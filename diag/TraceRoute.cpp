#include "diag/TraceRoute.h"

#include <algorithm>

#include "diag/IcmpTexts.h"
#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

using std::chrono::milliseconds;

constexpr std::int32_t kHighestTtl = 255;
constexpr std::int32_t kHighestPort = 65'535;

}  // namespace

TraceRoute::TraceRoute(ICMPCls& owner)
    : owner_(owner),
      call_(owner.call_),
      mark_(owner.module_, owner.call_),
      settings_(owner.settings_),
      exchange_(mark_) {
  owner.hopCount_ = 0;
  owner.sumRoundTripTime_ = 0;
  owner.canceled_ = false;
}

std::int32_t TraceRoute::Run(const std::string& host) {
  if (const std::int32_t error = owner_.Resolve(host, mark_, ip_)) return error;
  if (settings_.port < 0 || settings_.port > kHighestPort) return kErrInvalidArgument;
  request_.ip = ip_;
  request_.size = settings_.tracePacketSize;
  request_.kind = static_cast<ProbeKind>(settings_.probe);
  request_.port = ProbePort(request_.kind, settings_.port);
  if (exchange_.Open(request_) != 0) return -kIcmpNoSocket;
  const std::int32_t last = std::min(settings_.maxHops, kHighestTtl);
  for (std::int32_t ttl = 1; ttl <= last && !reached_; ++ttl) {
    std::int32_t error = ttl > 1 ? Pause() : 0;
    if (error == 0) error = AskHop(ttl);
    if (error == 0) error = Raise();
    if (error != 0) return error;
  }
  return 0;
}

std::int32_t TraceRoute::Pause() {
  if (settings_.delay <= 0) return 0;
  const WaitEnd end = WaitUntil(mark_, Now() + milliseconds(settings_.delay), [] { return false; });
  return end == WaitEnd::Cancelled ? kErrCancelled : 0;
}

std::int32_t TraceRoute::AskHop(std::int32_t ttl) {
  if (mark_.Cancelled()) return kErrCancelled;
  if (mark_.Expired()) return -kIpTimedOut;
  request_.ttl = ttl;
  return exchange_.Ask(request_, milliseconds(settings_.traceTimeout), outcome_);
}

std::int32_t TraceRoute::Raise() {
  if (!call_->alive) return kErrCancelled;
  const bool answered = !outcome_.from.IsNone();
  const auto time = static_cast<std::int32_t>(
      std::chrono::duration_cast<milliseconds>(outcome_.roundTrip).count());
  reached_ = answered && outcome_.from == ip_;
  ++owner_.hopCount_;
  owner_.sumRoundTripTime_ += time;
  ICMPClsEvents* events = owner_.events_;
  bool cancel = false;
  if (events != nullptr) {
    events->Hop(FormatAddress(outcome_.from), time, outcome_.status, cancel);
  }
  if (!call_->alive) return kErrCancelled;
  owner_.canceled_ = cancel;
  // After the destination's answer there is nothing left to cancel.
  return cancel && !reached_ ? kErrCancelled : 0;
}

}  // namespace netro
