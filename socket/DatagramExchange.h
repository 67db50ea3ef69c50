// What a protocol class may do with the UDPCls it owns beyond the public methods: send exactly what
// it means, and take only the reply to it.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <functional>
#include <span>

#include "socket/Wait.h"

namespace netro {

class UDPCls;

class UDPOwner {
 public:
  using Filter = std::function<bool(std::span<const std::uint8_t>)>;

  /// Sends one datagram of exactly these bytes, which may be none, and waits, as UDPQuery does, for
  /// one from the host asked that `wanted` takes; others are ignored. `reply` is what came, without
  /// a further byte. Returns the error number: 9999, 10002, the socket's.
  static std::int32_t Query(UDPCls& client, std::span<const std::uint8_t> datagram,
                            const Filter& wanted, const CancelMark& mark, Bytes& reply);
};

}  // namespace netro
