// The address that a user means by a host. Thread: the loop's.
#pragma once

#include <netro/ICMPCls.h>

#include <cstdint>
#include <string>

namespace netro::tool {

struct HostAddress {
  std::string address;  // empty on failure
  std::int32_t error = 0;
  std::string errorText;
};

/// The dotted address that `host` is or resolves to; looking it up blocks until `names` is stopped.
/// Broadcast, multicast and other addresses that no single host has are refused: throws UsageError
/// when `host` is one, and fails when it resolves to one.
HostAddress FindAddress(ICMPCls& names, const std::string& host);

}  // namespace netro::tool
