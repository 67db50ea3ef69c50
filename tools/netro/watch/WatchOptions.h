// The options of "netro watch". Thread: any.
#pragma once

#include <string>

#include "terminal/TlsOptions.h"

namespace CLI {
class App;
}

namespace netro::tool {

struct WatchOptions {
  std::string settings;  // the file
  std::string html;      // the page that is kept; empty for none
  TlsOptions tls;
  bool once = false;
  bool verbose = false;
  bool json = false;
  bool example = false;
};

void DeclareWatchOptions(CLI::App& options, WatchOptions& values);

/// Throws UsageError unless all values are possible.
void CheckWatchOptions(const WatchOptions& options);

}  // namespace netro::tool
