// The hosts on this host's networks whose hardware addresses the system knows, by ARP (RFC 826) or
// neighbour discovery (RFC 4861). Any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/Address.h"
#include "support/HardwareAddress.h"

namespace netro {

/// The hardware address of a neighbour if the system holds it as good: set for good, or
/// confirmed not long ago.
std::optional<HardwareAddress> ConfirmedNeighbour(const IpAddress& ip);

/// The same, but what the system sends to while it waits to be confirmed counts too. The host of
/// such an entry may be gone, like that of a stale one, which does not count.
std::optional<HardwareAddress> KnownNeighbour(const IpAddress& ip);

/// Makes the system ask for a neighbour's hardware address, by sending it an empty datagram, and
/// returns without waiting for the answer. A program that may change the system's table takes
/// unconfirmed entries out first, so that the network is asked; otherwise the system sends to a
/// stale entry and so makes it count. False when nothing is asked: the address is not on a network
/// of this host.
bool AskForNeighbour(const IpAddress& ip);

}  // namespace netro
