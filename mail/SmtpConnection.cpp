#include "mail/SmtpConnection.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"

namespace netro {

SmtpConnection::SmtpConnection(std::string& received, std::function<void(std::string_view)> arrived)
    : reply_(received), arrived_(std::move(arrived)) {
  socket_.Events(this);
  // The last block of a message would wait for the peer's delayed confirmation of the one before.
  socket_.NoDelay(true);
}

std::int32_t SmtpConnection::Open(const ConnectionPlan& plan) {
  listening_ = plan.socks == SocksKind::None;
  const std::int32_t error = SocketOwner::Connect(socket_, plan, *mark_);
  open_ = error == 0;
  if (open_ && listening_) address_ = socket_.RemoteIP();
  return error;
}

// What a proxy sends before it was asked is no reply, nor is its end the server's.
std::int32_t SmtpConnection::OpenTunnel(const ConnectionPlan& plan) {
  const std::int32_t error = SocketOwner::RunProlog(socket_, plan, *mark_);
  listening_ = error == 0;
  return error;
}

std::int32_t SmtpConnection::Protect(const std::string& host,
                                     const std::shared_ptr<TlsProvider>& provider,
                                     TimePoint deadline) {
  if (Failure() != 0) return Failure();
  const bool early = reply_.Code() != 0 ? reply_.HasMore() : reply_.HasBytes();
  tlsErrorText_ = SocketErrorText(tlsEarlyBytes);
  if (early) return tlsEarlyBytes;
  const std::int32_t error = SocketOwner::StartTls(socket_, host, provider, *mark_, deadline);
  protected_ = error == 0;
  tlsErrorText_ = socket_.LastSocketErrMsg();
  return error;
}

void SmtpConnection::Close() {
  open_ = false;
  socket_.Events(nullptr);
  socket_.Disconnect();
}

std::int32_t SmtpConnection::Send(std::string_view bytes, TimePoint limit) {
  if (mark_->Cancelled()) return kErrCancelled;
  const TimePoint deadline = std::min(SecondsFromNow(kStreamSendSeconds), limit);
  const std::int32_t error = SocketOwner::Send(socket_, bytes, *mark_, deadline);
  if (error == kErrConnectionReset) reset_ = true;
  // Who ends the session in the event of a reply does so when all has been sent.
  const bool replied = error == kErrCancelled && reply_.Code() != 0;
  return reset_ || replied ? 0 : error;
}

WaitEnd SmtpConnection::AwaitReply(TimePoint deadline) {
  const auto ended = [this] {
    const bool replied = wholeLines_ ? reply_.IsWhole() : reply_.Code() != 0;
    return replied || closed_ || error_ != 0 || IsForeign();
  };
  return ended() ? WaitEnd::Done : WaitUntil(*mark_, deadline, ended);
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
