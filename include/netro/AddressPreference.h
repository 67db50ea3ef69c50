// Which addresses of a host a class uses, and in which order.
#pragma once

#include <cstdint>

namespace netro {

/// A host whose addresses are known is connected to by one after the other: the next one begins a
/// quarter of a second after the last, or at once when that has failed (RFC 8305). The first that
/// opens stays; the error is that of the last.
enum AddressPreferenceEnum : std::int32_t {
  /// IPv4; IPv6 is asked for and used where there is no IPv4 address, or none that opens (two
  /// seconds after the last has begun).
  preferIPv4 = 0,
  /// Both are asked for at the same time, and come in the order of RFC 6724 as far as the routes
  /// tell, the two families in turn.
  preferIPv6 = 1,
  onlyIPv4 = 2,
  onlyIPv6 = 3,
};

}  // namespace netro
