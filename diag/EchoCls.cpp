// EchoCls: the public face of EchoRequests.
#include <netro/EchoCls.h>

#include <algorithm>
#include <limits>
#include <new>

#include "diag/EchoRequests.h"
#include "diag/IcmpTexts.h"
#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

std::int32_t MicroSeconds(std::chrono::nanoseconds time) {
  const auto count = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
  return static_cast<std::int32_t>(
      std::min<std::int64_t>(count, std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

EchoCls::EchoCls()
    : requests_(std::make_unique<EchoRequests>([this](std::int32_t id, const EchoOutcome& outcome) {
        if (events_ == nullptr) return;
        events_->Reply(id, FormatAddress(outcome.from), MicroSeconds(outcome.roundTrip),
                       outcome.status, outcome.ttl);
      })) {}

EchoCls::~EchoCls() = default;

std::int32_t EchoCls::SetLastErr(std::int32_t error) {
  lastErr_ = error;
  lastErrMsg_ = error == 0 ? std::string() : IcmpErrorText(std::abs(error));
  return 0;
}

std::int32_t EchoCls::Send(const std::string& IP, std::int32_t TTL, std::int32_t Size,
                           std::int32_t TimeoutMilliSeconds) try {
  const auto ip = ParseAddress(IP);
  if (!ip) return SetLastErr(kErrInvalidArgument);
  if (requests_->Open(*ip) != 0) return SetLastErr(-kIcmpNoSocket);
  const std::int32_t id =
      requests_->Send({*ip, TTL, Size}, std::chrono::milliseconds(TimeoutMilliSeconds));
  SetLastErr(id != 0 ? 0 : -kIpNoResources);
  return id;
} catch (const std::bad_alloc&) {
  return SetLastErr(-kIpNoResources);
}

void EchoCls::Cancel(std::int32_t Id) { requests_->Cancel(Id); }

std::int32_t EchoCls::Pending() const { return static_cast<std::int32_t>(requests_->Count()); }

EchoSocketEnum EchoCls::SocketUsed() const {
  return static_cast<EchoSocketEnum>(requests_->Kind());
}

}  // namespace netro
