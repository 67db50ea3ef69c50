// One ICMP echo exchange (RFC 792). Asks through an unprivileged datagram socket where the system
// grants one, else through a raw socket. Lives on its loop's thread; the owner waits in the loop.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <span>

#include "platform/Notifier.h"

namespace netro {

class Echo final : private SocketWatcher {
 public:
  explicit Echo(Notifier& notifier) : notifier_(notifier) {}
  ~Echo();
  Echo(const Echo&) = delete;
  Echo& operator=(const Echo&) = delete;

  /// Returns the error number; 10013 when the system allows this program no echo.
  std::int32_t Open();
  /// Sends one request with these bytes of data. A request that the system refuses to send gives
  /// its error number.
  std::int32_t Send(std::int32_t ip, std::span<const std::uint8_t> data);
  /// True once the reply is there: from the address asked, with this request's identifier, sequence
  /// number and data.
  bool Answered() const { return answered_; }

 private:
  void OnSocket(std::int32_t handle, SocketEvent event, std::int32_t error) override;
  bool IsReply(std::span<const std::uint8_t> packet) const;

  Notifier& notifier_;
  std::int32_t handle_ = 0;
  bool raw_ = false;
  std::int32_t ip_ = 0;
  std::uint16_t identifier_ = 0;
  std::uint16_t sequence_ = 0;
  Bytes data_;
  bool answered_ = false;
};

}  // namespace netro
