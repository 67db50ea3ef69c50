// In which order the addresses of a host are tried. Any thread.
#pragma once

#include <vector>

#include "platform/Address.h"

namespace netro {

/// The order of RFC 6724, section 6, as far as the routes of this host tell; then the families in
/// turn (RFC 8305, section 4), beginning with that of the best one.
std::vector<IpAddress> OrderAddresses(std::vector<IpAddress> addresses);

}  // namespace netro
