// The command "netro ping" beside fping: the whole of both programs, their start included.
#pragma once

namespace netro::bench {

void AddPingCommandCases();

}  // namespace netro::bench
