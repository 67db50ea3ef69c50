// A datagram or raw ICMP socket of one family: what it sends, and what it receives as answers.
// Owned by an Echo, on its thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>

#include "platform/Echo.h"

namespace netro {

class MessageBatch;

class IcmpSocket {
 public:
  using Take =
      std::function<void(const IcmpAnswer& answer, std::chrono::system_clock::time_point arrived)>;

  IcmpSocket(Notifier& notifier, AddressFamily family) : notifier_(notifier), family_(family) {}
  ~IcmpSocket();
  IcmpSocket(const IcmpSocket&) = delete;
  IcmpSocket& operator=(const IcmpSocket&) = delete;

  /// Returns the error number.
  std::int32_t Open(SocketWatcher& watcher);
  std::int32_t Handle() const { return handle_; }
  EchoSocket Kind() const { return kind_; }
  /// The system stamps what arrives.
  bool Stamps() const { return stamps_; }
  /// The system had none for the last read.
  bool LacksMemory() const { return lacksMemory_; }

  /// Of the packets to come; 0: the system's. Returns the error number.
  std::int32_t SetTtl(std::int32_t ttl);
  /// Returns the error number; of a full buffer it is always 10035.
  std::int32_t Send(std::span<const std::uint8_t> packet, const IpAddress& to);

  /// Hands out the answers that are there. False when there may be more.
  bool Receive(MessageBatch& batch, const Take& take);

 private:
  bool ReadQueue(MessageBatch& batch, bool errors, const Take& take);

  Notifier& notifier_;
  const AddressFamily family_;
  EchoSocket kind_ = EchoSocket::None;
  std::int32_t handle_ = 0;
  std::int32_t ttl_ = 0;  // that the socket is set to
  bool stamps_ = false;
  bool lacksMemory_ = false;
};

}  // namespace netro
