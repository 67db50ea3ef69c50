// How "netro trace" shows what it finds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "trace/TraceNames.h"
#include "trace/TraceOptions.h"
#include "trace/TraceProbes.h"

namespace netro::tool {

/// What a trace has come to.
struct TraceEnd {
  std::string address;     // of the destination; empty when its name has none
  std::int32_t error = 0;  // 0: it has answered; else of the lookup, -10001, 9999, or an IP status
  std::string errorText;
  double seconds = 0;
};

/// Who has answered the probes of a hop, each once.
std::vector<std::string> HostsOf(const TraceHop& hop);

void PrintTraceHead(const TraceOptions& options, const std::string& address);
/// A hop on the way to `address`. False when the output can no longer be written to.
bool PrintTraceHop(std::size_t number, const TraceHop& hop, const TraceNames& names,
                   const std::string& address);

/// Prints the JSON object; `probes` is null when none were sent.
void PrintTraceJson(const TraceOptions& options, const TraceEnd& end, const TraceProbes* probes,
                    const TraceNames& names);

/// Says on standard error why the destination was not reached.
void ExplainTrace(const TraceOptions& options, const TraceEnd& end);

}  // namespace netro::tool
