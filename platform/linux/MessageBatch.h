// Takes datagrams off a socket, many in one call, with what the system tells about each: where it
// came from, its TTL or hop limit, when it arrived, and the ICMP error that an error queue holds.
// Owned by whoever reads the socket; thread: one.
#pragma once

#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/linux/Descriptor.h"

namespace netro {

struct IcmpError {
  std::uint8_t type = 0;
  std::uint8_t code = 0;
  IpAddress from;
  std::span<const std::uint8_t> extensions;  // of the message, RFC 4884
};

/// When a packet was sent, by both clocks: the system stamps arrivals with the one that people set.
class SendTime {
 public:
  static SendTime Now();
  /// To the arrival that the system has stamped, or to now where that cannot be right.
  std::chrono::nanoseconds Until(std::chrono::system_clock::time_point arrived) const;

 private:
  std::chrono::system_clock::time_point wall_;
  std::chrono::steady_clock::time_point steady_;
};

struct BatchMessage {
  std::span<const std::uint8_t> bytes;
  IpAddress address;  // the sender; of an error where the datagram had been sent
  std::int32_t ttl = 0;
  std::chrono::system_clock::time_point arrived;  // zero when the system does not tell
  bool isIcmpError = false;
  IcmpError error;
};

class MessageBatch {
 public:
  static constexpr std::size_t kMost = 32;

  /// Has the system tell what a batch takes down.
  static void Prepare(int handle, AddressFamily family, bool errorQueue);

  /// Room for datagrams of this size, and what is longer is cut. It never shrinks.
  void Reserve(std::size_t size);

  /// Takes what is there, from the error queue or the other. Returns the number of messages, or -1
  /// with errno. They live until the next call.
  int Receive(int handle, bool errorQueue);
  BatchMessage operator[](std::size_t index) const;

 private:
  struct Slot {
    SystemAddress name;
    iovec bytes;
    alignas(cmsghdr) std::array<std::uint8_t, 192> control;
  };

  void MakeReady(std::size_t index);

  std::size_t size_ = 0;
  std::unique_ptr<std::uint8_t[]> room_;
  std::array<Slot, kMost> slots_;
  std::array<mmsghdr, kMost> headers_;
  std::size_t used_ = 0;  // by the last call: the others are ready as they are
};

}  // namespace netro
