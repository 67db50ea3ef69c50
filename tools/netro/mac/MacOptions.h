// The options of "netro mac". Thread: any.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace netro::tool {

struct MacOptions {
  std::string host;  // empty: the own adapters
  bool netBios = false;
  double timeout = 10;  // seconds
  bool json = false;
};

void DeclareMacOptions(CLI::App& options, MacOptions& values);

/// Throws UsageError for what cannot be asked.
void CheckMacOptions(const MacOptions& options);

}  // namespace netro::tool
