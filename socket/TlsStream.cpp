#include "socket/TlsStream.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/Notifier.h"
#include "platform/Process.h"

namespace netro {
namespace {

constexpr std::size_t kRoom = 64 * 1024;
constexpr std::size_t kPlaintextAtOnce = 64 * 1024;  // four records
// Of tickets, key updates and empty records, the peer may send so much between data.
constexpr std::size_t kMostWithoutData = 1024 * 1024;

}  // namespace

TlsStream::TlsStream(std::unique_ptr<TlsSession> session, std::span<const std::uint8_t> early)
    : session_(std::move(session)), end_(early.size()), process_(ProcessId()) {
  if (early.empty()) return;
  room_ = std::make_unique_for_overwrite<std::uint8_t[]>(std::max(kRoom, early.size()));
  std::ranges::copy(early, room_.get());
}

const TlsInfo& TlsStream::Info() const {
  if (!info_) info_ = session_->Info();
  return *info_;
}

std::size_t TlsStream::Unsent() const { return sendError_ == 0 ? session_->Outgoing().size() : 0; }

bool TlsStream::Flush(Notifier& notifier, std::int32_t handle, std::int32_t& error) {
  while (Unsent() > 0) {
    const auto sent = notifier.Send(handle, session_->Outgoing(), error);
    if (sent < 0 && error != kErrWouldBlock) sendError_ = error;
    if (sent < 0) return false;
    session_->Sent(static_cast<std::size_t>(sent));
  }
  error = sendError_;
  return error == 0;
}

std::ptrdiff_t TlsStream::Send(Notifier& notifier, std::int32_t handle,
                               std::span<const std::uint8_t> data, std::int32_t& error) {
  if (!Flush(notifier, handle, error)) return -1;
  if (data.empty()) return 0;
  const std::size_t taken = session_->Encrypt(data.first(std::min(data.size(), kPlaintextAtOnce)));
  if (taken == 0) {
    const std::int32_t failure = session_->Error();
    error = sendError_ = failure != 0 ? failure : static_cast<std::int32_t>(kErrShutDown);
    return -1;
  }
  if (!Flush(notifier, handle, error) && error != kErrWouldBlock) return -1;
  return static_cast<std::ptrdiff_t>(taken);
}

std::size_t TlsStream::Read(Notifier& notifier, std::int32_t handle, std::span<std::uint8_t> room) {
  std::size_t got = 0;
  while (!IsOver() && got < room.size() && (HasInput() || Receive(notifier, handle))) {
    const auto [taken, made] =
        session_->Decrypt({room_.get() + begin_, end_ - begin_}, room.subspan(got));
    begin_ += taken;
    got += made;
  }
  if (got > 0) withoutData_ = 0;
  std::int32_t error = 0;
  if (session_->Outgoing().size() > 0) Flush(notifier, handle, error);
  return got;
}

// The room is empty when this is called, since the session takes everything while it has room.
bool TlsStream::Receive(Notifier& notifier, std::int32_t handle) {
  if (withoutData_ > kMostWithoutData) {
    failure_ = tlsTooMuch;
    return false;
  }
  if (room_ == nullptr) room_ = std::make_unique_for_overwrite<std::uint8_t[]>(kRoom);
  std::int32_t error = 0;
  const auto got = notifier.Receive(handle, {room_.get(), kRoom}, error);
  begin_ = 0;
  end_ = got > 0 ? static_cast<std::size_t>(got) : 0;
  withoutData_ += end_;
  if (got <= 0) room_.reset();
  return got > 0;
}

std::int32_t TlsStream::EndError(std::int32_t error) const {
  if (failure_ != 0) return failure_;
  if (session_->State() == TlsState::Failed) return session_->Error();
  if (session_->State() == TlsState::PeerClosed) return 0;
  return error != 0 ? error : static_cast<std::int32_t>(kErrConnectionReset);
}

void TlsStream::Leave(Notifier& notifier, std::int32_t handle, bool nothingLost) noexcept {
  if (process_ != ProcessId()) return;
  try {
    std::uint8_t unwanted[1024];
    Read(notifier, handle, unwanted);
    if (nothingLost && Unsent() == 0 && session_->State() != TlsState::Failed) {
      session_->CloseNotify();
    }
    std::int32_t error = 0;
    Flush(notifier, handle, error);
  } catch (const std::exception&) {  // no memory: the peer sees an end without the alert
  }
  room_.reset();
  begin_ = end_ = 0;
  sendError_ = kErrShutDown;
}

}  // namespace netro
