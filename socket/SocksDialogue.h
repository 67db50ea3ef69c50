// The client's side of a SOCKS negotiation as pure messages: which bytes to send next, how long a
// reply is, and what it means. SOCKS 4 and 4a, SOCKS 5 (RFC 1928) and its user/password method
// (RFC 1929). SocketCls carries the bytes.
//
// Only byte 1 of a reply decides; a reply of two bytes is enough. What a reply has beyond that is
// counted, so that the bytes behind it can go to the tunnel.
#pragma once

#include <netro/Types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/Address.h"

namespace netro {

/// Whom the proxy shall connect to, and as whom.
struct SocksTarget {
  std::string host;
  std::int32_t port = 0;
  IpAddress ip;  // none: the proxy resolves `host`
  std::string user;
  std::string password;
  bool resolveRemotely = false;
  bool version5 = false;
  bool offerPassword = false;
};

class SocksDialogue {
 public:
  static constexpr std::size_t kShortestReply = 2;

  explicit SocksDialogue(SocksTarget target);

  /// 0, or 10022 when a field is too long for its length byte, empty, or holds a NUL that would end
  /// it early.
  static std::int32_t Check(const SocksTarget& target);

  bool IsOpen() const { return step_ == Step::Open; }
  /// The next message to send.
  Bytes Request() const;
  /// Length of the reply that begins with these bytes, as far as they tell; never less than 2.
  std::size_t ReplyLength(std::span<const std::uint8_t> reply) const;
  /// True when byte 1 of the reply is there and lets the dialogue go on.
  bool Accepts(std::span<const std::uint8_t> reply) const;
  /// Goes to the next step. A reply that does not allow it gives 9001, 9002 or 9003.
  std::int32_t Take(std::span<const std::uint8_t> reply);

 private:
  enum class Step { Connect4, Greeting, Password, Connect5, Open };

  Bytes Connect4() const;
  Bytes Greeting() const;
  Bytes Password() const;
  Bytes Connect5() const;

  SocksTarget target_;
  Step step_;
};

}  // namespace netro
