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

constexpr std::int32_t kHighestPort = 65'535;

std::int32_t MicroSeconds(std::chrono::nanoseconds time) {
  const auto count = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
  return static_cast<std::int32_t>(
      std::min<std::int64_t>(count, std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

EchoCls::EchoCls()
    : requests_(std::make_unique<EchoRequests>([this](std::int32_t id, const EchoOutcome& outcome) {
        if (events_ == nullptr) return;
        events_->Answer({id, FormatAddress(outcome.from), MicroSeconds(outcome.roundTrip),
                         outcome.status, outcome.ttl, outcome.icmpType, outcome.icmpCode,
                         outcome.labels, outcome.duplicate});
      })) {}

EchoCls::~EchoCls() = default;

std::int32_t EchoCls::SetLastErr(std::int32_t error) {
  lastErr_ = error;
  lastErrMsg_ = error == 0 ? std::string() : IcmpErrorText(std::abs(error));
  return 0;
}

std::int32_t EchoCls::Send(const std::string& IP, std::int32_t TTL, std::int32_t Size,
                           std::int32_t TimeoutMilliSeconds) try {
  const LoopUse::Scope use(requests_->Use());
  if (use.Refused()) return 0;
  const auto ip = ParseAddress(IP);
  if (!ip || port_ < 0 || port_ > kHighestPort) return SetLastErr(kErrInvalidArgument);
  const EchoRequest request{*ip, TTL, Size, static_cast<ProbeKind>(probe_),
                            ProbePort(static_cast<ProbeKind>(probe_), port_)};
  if (requests_->Open(request) != 0) return SetLastErr(-kIcmpNoSocket);
  const std::int32_t id = requests_->Send(request, std::chrono::milliseconds(TimeoutMilliSeconds));
  SetLastErr(id != 0 ? 0 : -kIpNoResources);
  return id;
} catch (const std::bad_alloc&) {
  return SetLastErr(-kIpNoResources);
}

void EchoCls::Duplicates(bool value) {
  duplicates_ = value;
  requests_->TellDuplicates(value);
}

void EchoCls::Cancel(std::int32_t Id) {
  const LoopUse::Scope use(requests_->Use());
  if (!use.Refused()) requests_->Cancel(Id);
}

std::int32_t EchoCls::Pending() const { return static_cast<std::int32_t>(requests_->Count()); }

EchoSocketEnum EchoCls::SocketUsed() const {
  return static_cast<EchoSocketEnum>(requests_->Kind());
}

}  // namespace netro
