// Finds the hardware address of a host on a network of this one. For NetBIOSCls, on its thread.
#pragma once

#include <optional>

#include "platform/Address.h"
#include "socket/Wait.h"
#include "support/HardwareAddress.h"

namespace netro {

/// From the interfaces, if the address is an own one, or from the system's table of neighbours; if
/// that does not know it, waits in the loop for up to a second while the system asks. Touches no
/// object.
std::optional<HardwareAddress> QueryHardwareAddress(const IpAddress& ip, const CancelMark& mark);

}  // namespace netro
