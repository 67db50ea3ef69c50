// The protection of one connection: stands between a SocketCls and its descriptor once the
// handshake is over, holding what the session has made and the system not yet taken, and what has
// arrived and was not yet wanted. After the connection's end, or a failed handshake, it only tells
// what was known. Belongs to one SocketCls and its thread; shared, because an event that a read
// raises may close the socket.
//
// Nothing idle holds memory: ciphertext that arrives has its room only while it is being read.
#pragma once

#include <netro/Tls.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace netro {

class Notifier;

class TlsStream {
 public:
  /// `early`: ciphertext that has arrived behind the handshake.
  TlsStream(std::unique_ptr<TlsSession> session, std::span<const std::uint8_t> early);

  const TlsSession& Session() const { return *session_; }
  /// What the handshake has told of the peer. Certificates are read once.
  const TlsInfo& Info() const;

  /// Protects data and sends it. Returns how much of it was taken, which may still be Unsent in
  /// part, or -1 and `error`, 10035 while the system takes nothing. Without data only sends what is
  /// unsent, and returns 0 when nothing is.
  std::ptrdiff_t Send(Notifier& notifier, std::int32_t handle, std::span<const std::uint8_t> data,
                      std::int32_t& error);
  /// Bytes of ciphertext that the system has not taken; none any more once the connection broke.
  std::size_t Unsent() const;

  /// Plaintext that has arrived; 0: nothing for now, or nothing any more, as the state tells.
  std::size_t Read(Notifier& notifier, std::int32_t handle, std::span<std::uint8_t> room);
  /// True when Read has something to look at that is no longer the system's.
  bool HasInput() const { return begin_ != end_ || session_->HasPlaintext(); }

  /// True when Read has nothing more to give, whatever arrives.
  bool IsOver() const { return failure_ != 0 || session_->State() != TlsState::Open; }
  /// How the data ended when the connection did with `error`: 0 only if the peer had said so.
  std::int32_t EndError(std::int32_t error) const;
  /// Closed is raised once.
  bool Ended() const { return ended_; }
  void End() { ended_ = true; }

  /// Takes in what lies there, so that the system need not reset the connection, and sends the
  /// closing alert if that can be done at once and nothing of ours is missing before it.
  void Leave(Notifier& notifier, std::int32_t handle, bool nothingLost) noexcept;

 private:
  bool Flush(Notifier& notifier, std::int32_t handle, std::int32_t& error);
  bool Receive(Notifier& notifier, std::int32_t handle);

  std::unique_ptr<TlsSession> session_;
  mutable std::optional<TlsInfo> info_;
  std::unique_ptr<std::uint8_t[]> room_;  // what has arrived: [begin_, end_)
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::size_t withoutData_ = 0;  // bytes that have arrived since the last plaintext
  std::int32_t failure_ = 0;     // of reading, besides the session's own
  std::int32_t sendError_ = 0;   // the connection takes nothing any more
  bool ended_ = false;
  const int process_;  // the child of a fork leaves its parent's connection alone
};

}  // namespace netro
