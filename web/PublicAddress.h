// Which addresses belong to the public Internet (the special-purpose registries of RFC 6890): what
// a server names may otherwise lead into the network of who asked it. Pure; any thread.
#pragma once

#include "platform/Address.h"

namespace netro {

/// False for none, and for private, loopback, link-local, multicast and reserved addresses, also
/// where an IPv6 address stands for such an IPv4 one.
bool IsPublicAddress(const IpAddress& address);

}  // namespace netro
