// The servers of the root zone. Thread: any.
#pragma once

#include <vector>

#include "dns/Delegation.h"

namespace netro::tool {

/// All 13, as https://www.iana.org/domains/root/servers has them.
std::vector<NameServer> RootServers();

}  // namespace netro::tool
