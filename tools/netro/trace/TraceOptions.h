// The options of "netro trace". Thread: any.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/EchoProbe.h>

#include <cstdint>
#include <string>

namespace CLI {
class App;
}

namespace netro::tool {

struct TraceOptions {
  std::string host;
  std::int32_t probes = 3;  // for each hop
  std::int32_t maxHops = 30;
  std::int32_t size = 32;
  double timeout = 5;  // seconds
  EchoProbeEnum probe = EchoProbeICMP;
  std::int32_t port = 0;  // 0 is the usual one of the probe
  bool live = false;
  bool report = false;
  std::int32_t cycles = 0;  // of these two; 0 is no end
  double interval = 1;      // seconds, from one to the next
  std::string dns;
  AddressPreferenceEnum preference = preferIPv4;
  bool numeric = false;
  bool json = false;
};

void DeclareTraceOptions(CLI::App& options, TraceOptions& values);

/// Throws UsageError for what cannot be asked.
void CheckTraceOptions(const TraceOptions& options);

}  // namespace netro::tool
