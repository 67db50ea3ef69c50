// Which addresses belong to the public Internet: what a server names may otherwise lead into the
// network of who asked it. Pure; thread: any.
#pragma once

#include <netro/Export.h>

#include <string>

namespace netro {

/// False for private, loopback, link-local, multicast and reserved addresses (the special-purpose
/// registries of RFC 6890), also where an IPv6 address stands for such an IPv4 one, and for texts
/// that are no address.
NETRO_EXPORT bool IsPublicAddress(const std::string& Address);

}  // namespace netro
