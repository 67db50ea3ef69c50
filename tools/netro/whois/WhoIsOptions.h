// The options of "netro whois". Thread: any.
#pragma once

#include <string>

#include "terminal/ConnectionOptions.h"
#include "whois/WhoIsServer.h"

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct WhoIsOptions {
  std::string name;
  std::string server;
  bool follow = false;
  ConnectionOptions connection;
  bool json = false;
};

void DeclareWhoIsOptions(CLI::App& options, WhoIsOptions& values);

/// The options as the library takes them.
struct WhoIsRequest {
  std::string name;
  WhoIsServer server;
  bool follow = false;
  ConnectionOptions connection;
  Proxy proxy;
};

/// Throws UsageError.
WhoIsRequest ReadWhoIsRequest(const WhoIsOptions& options);

}  // namespace netro::tool
