// Log lines written to a file: LogfileCLS beside spdlog's basic file logger.
#pragma once

namespace netro::bench {

void AddLogCases();

}  // namespace netro::bench
