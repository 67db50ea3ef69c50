// The options of "netro ping". Thread: any.
#pragma once

#include <netro/AddressPreference.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace netro::tool {

struct PingOptions {
  std::vector<std::string> hosts;  // as given; networks and the file come in with PingHosts
  std::string file;
  std::int32_t count = 4;  // 0 is no end
  double interval = 1;     // seconds
  std::int32_t size = 32;
  double timeout = 5;    // seconds
  double deadline = 0;   // of the whole run; 0 is none
  std::optional<std::int32_t> ttl;  // the system's if not given
  std::string dns;
  AddressPreferenceEnum preference = preferIPv4;
  bool quiet = false;
  bool alive = false;
  bool json = false;
  bool jsonLines = false;
};

void DeclarePingOptions(CLI::App& options, PingOptions& values);

/// Throws UsageError unless all values are possible.
void CheckPingOptions(const PingOptions& options);

}  // namespace netro::tool
