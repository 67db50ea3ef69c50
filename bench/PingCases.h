// Echo requests to many targets from one thread, beside fping.
#pragma once

namespace netro::bench {

void AddPingCases();

}  // namespace netro::bench
