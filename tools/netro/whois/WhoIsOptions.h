// The options of "netro whois". Thread: any.
#pragma once

#include <cstdint>
#include <string>

#include "terminal/ConnectionOptions.h"

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct WhoIsOptions {
  std::string name;
  std::string server;
  std::string table;
  bool follow = false;
  bool noFollow = false;
  bool followPrivate = false;
  double total = 120;
  ConnectionOptions connection;
  bool json = false;
};

void DeclareWhoIsOptions(CLI::App& options, WhoIsOptions& values);

/// The options as the library takes them.
struct WhoIsRequest {
  std::string name;
  std::string host;  // empty: the table's
  std::int32_t port = 43;
  std::string table;
  bool follow = false;
  bool followPrivate = false;
  double total = 0;
  ConnectionOptions connection;
  Proxy proxy;
};

/// Throws UsageError.
WhoIsRequest ReadWhoIsRequest(const WhoIsOptions& options);

}  // namespace netro::tool
