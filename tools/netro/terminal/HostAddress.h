// The address that a user means by a host. Thread: the loop's.
#pragma once

#include <netro/ICMPCls.h>

#include <cstdint>
#include <optional>
#include <string>

namespace netro::tool {

struct HostAddress {
  std::string address;  // empty on failure
  std::int32_t error = 0;
  std::string errorText;
};

/// An IPv6 address as it is usually written (RFC 5952, the zone by its name); none for other texts.
std::optional<std::string> UsualIPv6(const std::string& text);

/// The address that `host` is, or resolves to with the AddressPreference of `names`; looking it up
/// blocks until `names` is stopped. Broadcast, multicast and other addresses that no single host
/// has are refused: throws UsageError when `host` is one, or one of the family that is not to be
/// used, and fails when it resolves to one.
HostAddress FindAddress(ICMPCls& names, const std::string& host);

}  // namespace netro::tool
