// DNS messages in a TCP stream: each has its length in front (RFC 1035, section 4.2.2). Used by one
// connection's owner, on its thread.
#pragma once

#include <netro/Types.h>

#include <functional>
#include <span>

namespace netro {

class DnsStream {
 public:
  using Take = std::function<void(std::span<const std::uint8_t> message)>;

  /// Hands each message to `take` as soon as it is whole; keeps less than one between calls.
  void Feed(std::span<const std::uint8_t> bytes, const Take& take);
  /// True when a message has begun and is not whole yet.
  bool IsInside() const { return !partial_.empty(); }

 private:
  Bytes partial_;
};

/// A message with its length in front; it must be shorter than 65,536 bytes.
Bytes WithLength(std::span<const std::uint8_t> message);

}  // namespace netro
