// Time queries over UDP: QueryTimeCLS beside the system's calls alone.
#pragma once

namespace netro::bench {

void AddTimeCases();

}  // namespace netro::bench
