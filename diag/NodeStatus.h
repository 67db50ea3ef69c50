// NetBIOS node status messages (RFC 1002, sections 4.2.17 and 4.2.18). Any thread.
#pragma once

#include <netro/NetBIOSCls.h>
#include <netro/Types.h>

#include <cstdint>
#include <span>

namespace netro {

/// Asks the host that gets it, whatever its names are.
Bytes ComposeNodeStatusRequest(std::uint16_t id);

/// False for a datagram that carries another ID, and so is a reply to something else.
bool MayAnswerNodeStatus(std::span<const std::uint8_t> datagram, std::uint16_t id);

/// Reads a reply. False when it is not a whole one; `status` is then as it was.
bool ReadNodeStatus(std::span<const std::uint8_t> reply, AdapterStatus& status);

}  // namespace netro
