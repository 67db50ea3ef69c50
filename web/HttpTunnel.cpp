#include "web/HttpTunnel.h"

#include <netro/Tls.h>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "socket/OpenConnection.h"

namespace netro {
namespace {

// The header alone counts: an answer that opens a tunnel has no body, and of one that does not,
// the body is not read.
constexpr HttpAnswer::Options kHeadOnly{.headOnly = true};

bool IsGood(std::int32_t code) { return code >= 200 && code < 300; }

}  // namespace

HttpTunnel::HttpTunnel(SocketCls& socket, const CancelMark& mark)
    : socket_(socket),
      before_(socket.Events()),
      call_(mark.Object()),
      mark_(mark),
      answer_(kHeadOnly, *this) {
  socket_.Events(this);
}

HttpTunnel::~HttpTunnel() {
  if (call_->alive && socket_.Events() == this) socket_.Events(before_);
}

std::int32_t HttpTunnel::Ask(const std::string& request, TimePoint deadline) {
  std::int32_t error = SocketOwner::Send(socket_, request, mark_, deadline);
  if (!call_->alive) return kErrCancelled;
  if (error != 0 && error != kErrConnectionReset) return error;
  const WaitEnd end = WaitUntil(mark_, deadline, [&] {
    return !call_->alive || closed_ || answer_.HeaderComplete() || answer_.Error() != 0;
  });
  if (!call_->alive) return kErrCancelled;
  return end == WaitEnd::Done ? Judge() : WaitError(end);
}

std::int32_t HttpTunnel::Judge() const {
  if (answer_.Error() != 0) return answer_.Error();
  if (!IsGood(answer_.Status().code)) return kErrRefused;
  if (answer_.HasLeftOver()) return tlsEarlyBytes;
  return closed_ ? kErrConnectionReset : 0;
}

void HttpTunnel::DataArrival(const Bytes& block, const std::string&) {
  answer_.Feed(block);
}

void HttpTunnel::Closed() {
  closed_ = true;
  if (!answer_.HeaderComplete()) answer_.ConnectionEnded(SocketOwner::CloseError(socket_));
}

}  // namespace netro
