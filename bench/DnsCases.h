// DNS: queries per second and records per second of QueryDNSCLS beside c-ares.
#pragma once

#include "bench/DnsServers.h"

namespace netro::bench {

/// `servers` outlives the run.
void AddDnsCases(const DnsServers& servers);

}  // namespace netro::bench
