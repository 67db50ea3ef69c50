#include "diag/WatchEchoes.h"

#include "platform/ErrorNumbers.h"
#include "socket/Wait.h"
#include "support/OnException.h"

namespace netro {

WatchEchoes::WatchEchoes()
    : requests_([this](std::int32_t id, const EchoOutcome& outcome) { Ended(id, outcome); }) {}

std::int32_t WatchEchoes::Ask(const IpAddress& ip, std::int32_t size,
                              std::chrono::milliseconds timeout, EchoOutcome& outcome) {
  const auto waiting = std::make_shared<Waiting>();
  waiting->call = std::make_shared<CallState>();
  const std::int32_t id = requests_.Send({ip, 0, size}, timeout);
  if (id == 0) return kErrNoBuffers;
  const OnException cancel([&] { requests_.Cancel(id); });
  waiting_[id] = waiting;
  const CancelMark mark(SocketModule::ForThread(), waiting->call);
  WaitUntil(mark, TimePoint::max(), [&] { return waiting->isOver; });
  waiting_.erase(id);
  requests_.Cancel(id);
  outcome = waiting->outcome;
  return waiting->isOver ? 0 : kErrCancelled;
}

void WatchEchoes::Ended(std::int32_t id, const EchoOutcome& outcome) {
  const auto found = waiting_.find(id);
  if (found == waiting_.end()) return;
  found->second->outcome = outcome;
  found->second->isOver = true;
  found->second->call->Changed();
}

}  // namespace netro
