// The options of "netro ping". Thread: any.
#pragma once

#include <netro/AddressPreference.h>

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace netro::tool {

struct PingOptions {
  std::vector<std::string> hosts;
  std::int32_t count = 4;  // 0 is no end
  double interval = 1;     // seconds
  std::int32_t size = 32;
  double timeout = 5;  // seconds
  std::string dns;
  AddressPreferenceEnum preference = preferIPv4;
  bool quiet = false;
  bool json = false;
};

void DeclarePingOptions(CLI::App& options, PingOptions& values);

/// Throws UsageError unless all values are possible.
void CheckPingOptions(const PingOptions& options);

}  // namespace netro::tool
