// The options of "netro time". Thread: any.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "terminal/ConnectionOptions.h"
#include "terminal/HostAndPort.h"

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct TimeOptions {
  std::vector<std::string> servers;
  std::optional<std::int32_t> port;
  bool timeProtocol = false;
  std::optional<std::int32_t> version;
  bool referenceName = false;
  std::optional<std::int32_t> samples;
  std::optional<double> total;
  bool tcp = false;
  ConnectionOptions connection;
  bool json = false;
};

void DeclareTimeOptions(CLI::App& options, TimeOptions& values);

/// The options as the library takes them.
struct TimeRequest {
  std::string host;
  std::int32_t port = 0;
  std::int32_t version = 3;
  bool tcp = false;
  Proxy proxy;

  /// The library asks by SNTP on its own port, by the time protocol on all others.
  bool IsSntp() const { return port == 123; }
  std::string Server() const { return HostAndPortText(host, port); }
};

/// Throws UsageError.
TimeRequest ReadTimeRequest(const TimeOptions& options);

/// The same of several servers.
struct SurveyRequest {
  std::vector<std::string> servers;
  std::int32_t samples = 4;
  double total = 10;
  ConnectionOptions connection;
  bool json = false;
};

bool IsSurvey(const TimeOptions& options);
/// Throws UsageError.
SurveyRequest ReadSurveyRequest(const TimeOptions& options);

}  // namespace netro::tool
