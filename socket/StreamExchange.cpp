#include "socket/StreamExchange.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/ErrorNumbers.h"

namespace netro {

std::int32_t StreamExchange::Run(const ConnectionPlan& plan) {
  socket_.Events(this);
  std::int32_t error = SocketOwner::Connect(socket_, plan, mark_);
  connected_ = error == 0;
  if (error == 0) error = SocketOwner::RunProlog(socket_, plan, mark_);
  if (error == 0) error = Send();
  if (error == 0) error = Await(plan);
  socket_.Events(nullptr);
  socket_.Disconnect();
  return ended_ ? code_ : error;
}

// A peer that has ended the exchange already needs no request.
std::int32_t StreamExchange::Send() {
  const std::string request = ended_ ? std::string() : Request();
  return request.empty() ? 0 : SocketOwner::Send(socket_, request, mark_);
}

std::int32_t StreamExchange::Await(const ConnectionPlan& plan) {
  for (;;) {
    const std::uint64_t progress = progress_;
    const auto wait = patience_.value_or(plan.wait);
    const WaitEnd end = WaitUntil(mark_, std::min(MillisecondsFromNow(wait), plan.limit),
                                  [&] { return ended_ || progress_ != progress; });
    if (end == WaitEnd::TimedOut && patience_) return 0;
    if (ended_ || end != WaitEnd::Done) return WaitError(end);
    if (mark_.Cancelled()) return kErrCancelled;
  }
}

void StreamExchange::End(std::int32_t code) {
  if (!std::exchange(ended_, true)) code_ = code;
}

void StreamExchange::DataArrival(const Bytes& BinData, const std::string& /*RemoteHostIP*/) {
  if (ended_) return;
  try {
    Arrived(BinData);
  } catch (const std::bad_alloc&) {
    End(kErrNoBuffers);
  }
}

void StreamExchange::Closed() {
  if (!ended_) End(PeerClosed(SocketOwner::CloseError(socket_)));
}

}  // namespace netro
