// A datagram socket with one target, for UDPCls. It keeps the first datagram that arrives until it
// is taken; further ones wait in the system. Owned by its UDPCls, on that one's thread.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <span>

#include "platform/Notifier.h"

namespace netro {

class DatagramSocket final : private SocketWatcher {
 public:
  explicit DatagramSocket(Notifier& notifier) : notifier_(notifier) {}
  ~DatagramSocket();
  DatagramSocket(const DatagramSocket&) = delete;
  DatagramSocket& operator=(const DatagramSocket&) = delete;

  struct Options {
    bool reuseAddress = false;
    bool broadcast = false;
  };

  /// Both return the error number.
  std::int32_t Open(const Options& options, const SocketAddress& target);
  std::int32_t Send(std::span<const std::uint8_t> datagram);

  /// True while a datagram, or an error, waits to be taken.
  bool Readable() const { return readable_; }
  bool SendBlocked() const { return sendBlocked_; }
  /// Takes what Readable tells of; returns the error number.
  std::int32_t Take(Bytes& reply);

 private:
  void OnSocket(std::int32_t handle, SocketEvent event, std::int32_t error) override;

  Notifier& notifier_;
  std::int32_t handle_ = 0;
  SocketAddress target_;
  bool readable_ = false;
  Bytes reply_;
  std::int32_t error_ = 0;
  bool sendBlocked_ = false;
};

}  // namespace netro
