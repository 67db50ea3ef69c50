// The options of "netro doctor", and what they ask for. Thread: any.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/Tls.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "terminal/ProxyOption.h"
#include "terminal/TlsOptions.h"

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct DoctorOptions {
  std::string host;
  std::optional<std::int32_t> port;
  std::string timeServer;
  std::optional<std::string> proxy;  // empty text: none, whatever the environment says
  std::string proxyType;
  std::string proxyPasswordFile;
  std::string dns;
  AddressPreferenceEnum preference = preferIPv6;  // both families at once
  TlsOptions tls;
  double timeout = 5;  // seconds of each step
  double total = 60;
  bool json = false;
};

/// What HOST stands for.
struct DoctorTarget {
  std::string host;
  std::int32_t port = 0;
  bool isHttp = false;
  bool isTls = false;
  std::string url;    // where it is HTTP, as it is asked for
  std::string shown;  // without user and password
};

struct Server {
  std::string host;
  std::int32_t port = 0;
};

struct DoctorRequest {
  DoctorOptions options;
  DoctorTarget target;
  std::vector<Server> resolvers;  // empty: the system's
  std::optional<Server> timeServer;
  Proxy proxy;
  std::shared_ptr<TlsProvider> tls;  // null in a build without TLS
};

void DeclareDoctorOptions(CLI::App& options, DoctorOptions& values);

/// Throws UsageError.
DoctorRequest ReadDoctorRequest(const DoctorOptions& options);

}  // namespace netro::tool
