// HTTP: requests per second, throughput and memory of HTTPCls beside libcurl's easy interface.
#pragma once

#include "bench/HttpServers.h"

namespace netro::bench {

/// `servers` outlives the run.
void AddHttpCases(const HttpServers& servers);

}  // namespace netro::bench
