#include "mail/SmtpConnection.h"

#include <new>
#include <utility>

#include "platform/ErrorNumbers.h"

namespace netro {

SmtpConnection::SmtpConnection(const CancelMark& mark, std::string& received,
                               std::function<void(std::string_view)> arrived)
    : mark_(mark), reply_(received), arrived_(std::move(arrived)) {
  socket_.Events(this);
  // The last block of a message would wait for the peer's delayed confirmation of the one before.
  socket_.NoDelay(true);
}

std::int32_t SmtpConnection::Open(const ConnectionPlan& plan) {
  listening_ = plan.socks == SocksKind::None;
  return SocketOwner::Connect(socket_, plan, mark_);
}

// What a proxy sends before it was asked is no reply, nor is its end the server's.
std::int32_t SmtpConnection::OpenTunnel(const ConnectionPlan& plan) {
  const std::int32_t error = SocketOwner::RunProlog(socket_, plan, mark_);
  listening_ = error == 0;
  return error;
}

void SmtpConnection::Close() {
  socket_.Events(nullptr);
  socket_.Disconnect();
}

std::int32_t SmtpConnection::Send(std::string_view bytes) {
  if (mark_.Cancelled()) return kErrCancelled;
  const std::int32_t error = SocketOwner::Send(socket_, bytes, mark_);
  if (error == kErrConnectionReset) reset_ = true;
  // Who ends the session in the event of a reply does so when all has been sent.
  const bool replied = error == kErrCancelled && reply_.Code() != 0;
  return reset_ || replied ? 0 : error;
}

WaitEnd SmtpConnection::AwaitReply(TimePoint deadline) {
  const auto ended = [this] { return reply_.Code() != 0 || closed_ || error_ != 0; };
  return ended() ? WaitEnd::Done : WaitUntil(mark_, deadline, ended);
}

std::int32_t SmtpConnection::Failure() const {
  if (error_ != 0) return error_;
  return closed_ || reset_ ? kErrConnectionReset : 0;
}

void SmtpConnection::DataArrival(const Bytes& BinData, const std::string& /*RemoteHostIP*/) try {
  if (!listening_ || error_ != 0) return;
  const std::string_view bytes(reinterpret_cast<const char*>(BinData.data()), BinData.size());
  if (!reply_.Add(bytes)) error_ = kErrMessageTooLong;
  arrived_(bytes);
} catch (const std::bad_alloc&) {
  error_ = kErrNoBuffers;
}

}  // namespace netro
