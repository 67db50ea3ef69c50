// What routers append to ICMP errors: the extension structure of RFC 4884 and the MPLS label stack
// in it (RFC 4950). Pure code; any thread.
#pragma once

#include <netro/EchoProbe.h>

#include <cstdint>
#include <span>
#include <vector>

#include "platform/Address.h"

namespace netro {

/// The extension structure of an ICMP error message; nothing where there is none. Routers from
/// before RFC 4884 do not tell that there is one: it then follows 128 bytes of the packet, and only
/// counts with a checksum that is right.
std::span<const std::uint8_t> FindExtensions(AddressFamily family,
                                             std::span<const std::uint8_t> message);

/// The label stack in an extension structure, 16 labels at most; none when it is damaged.
std::vector<MplsLabel> ReadMplsLabels(std::span<const std::uint8_t> extensions);

}  // namespace netro
