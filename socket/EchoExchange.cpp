#include "socket/EchoExchange.h"

#include <algorithm>
#include <utility>

#include "platform/ErrorNumbers.h"

namespace netro {

EchoExchange::EchoExchange(const CancelMark& mark)
    : mark_(mark), echo_(mark.Module().Echoes(), [this](std::int32_t, const EchoOutcome& outcome) {
        number_ = 0;
        outcome_ = outcome;
        mark_.Object()->Changed();
      }) {
  echo_.SetAwaited();
}

std::int32_t EchoExchange::Ask(const EchoRequest& request, std::chrono::milliseconds timeout,
                               EchoOutcome& outcome) {
  outcome = {};
  outcome.status = echo_.Send(request, timeout, number_);
  if (outcome.status != kIpSuccess) return 0;
  const TimePoint deadline = Now() + std::max(timeout, std::chrono::milliseconds(0));
  const WaitEnd end = WaitUntil(mark_, deadline, [this] { return number_ == 0; });
  if (end == WaitEnd::Done) {
    outcome = outcome_;
    return 0;
  }
  echo_.Forget(std::exchange(number_, 0));
  outcome.status = kIpTimedOut;
  return end == WaitEnd::Cancelled ? kErrCancelled : 0;
}

}  // namespace netro
