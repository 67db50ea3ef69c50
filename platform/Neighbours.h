// The hosts on this host's networks whose hardware addresses the system knows (ARP, RFC 826). Any
// thread.
#pragma once

#include <cstdint>
#include <optional>

#include "support/HardwareAddress.h"

namespace netro {

/// The hardware address of an IPv4 neighbour if the system holds it as good: set for good,
/// confirmed not long ago, or in use. Stale entries, whose host may be gone, do not count.
std::optional<HardwareAddress> KnownNeighbour(std::int32_t ip);

/// Makes the system ask for a neighbour's hardware address, by sending it an empty datagram, and
/// returns without waiting for the answer. A program that may change the system's table takes stale
/// entries out first, so that the network is asked; otherwise the system puts the stale entry to
/// use and so makes it count. False when nothing is asked: the address is not on a network of this
/// host.
bool AskForNeighbour(std::int32_t ip);

}  // namespace netro
