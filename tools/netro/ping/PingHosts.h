// Whom "netro ping" asks: the hosts of the command line and of a file, and all of a network.
// Thread: any.
#pragma once

#include <string>
#include <vector>

#include "ping/PingOptions.h"

namespace netro::tool {

/// Each host once for each time that it is named. Throws UsageError for what is no host, a network
/// that is too large, and a file that cannot be read.
std::vector<std::string> PingHosts(const PingOptions& options);

}  // namespace netro::tool
