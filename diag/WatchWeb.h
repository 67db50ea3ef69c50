// The probe of a web server: HTTPCls, as far as its answer is of interest. Blocks, in a task.
#pragma once

#include <string>

#include "diag/WatchProbe.h"

namespace netro {

/// Why a URL cannot be probed; empty when it can.
std::string WhyNoUrl(const WatchTarget& target);

ProbeResult FetchPage(const WatchTarget& target, const WatchProbeTools& tools);

}  // namespace netro
