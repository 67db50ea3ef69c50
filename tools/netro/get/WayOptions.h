// The way that "netro get" takes to servers: proxies, addresses, limits, redirects, repetitions.
// Thread: any.
#pragma once

#include <netro/HTTPCls.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "terminal/ProxyOption.h"

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct WayOptions {
  std::optional<std::string> proxy;  // empty text: none, whatever the environment says
  std::string proxyType;
  std::string proxyPasswordFile;
  std::string noProxy;
  std::vector<std::string> resolve;
  std::string dns;
  AddressPreferenceEnum preference = preferIPv4;
  std::int32_t parallel = 8;
  double connectTimeout = 0;  // 0: as timeout
  double timeout = 30;
  double maxTime = 0;  // 0: no limit
  std::string limitRate;
  std::int32_t maxRedirects = 10;
  std::int32_t retries = 0;
};

void DeclareWay(CLI::App& options, WayOptions& values);

struct HostAddressOption {
  std::string host;
  std::int32_t port = 0;
  std::string address;
};

/// The same as the library takes it.
struct Way {
  WayOptions options;
  std::optional<Proxy> proxy;  // for all URLs; else the environment's
  std::vector<HostAddressOption> addresses;
  std::uint64_t bytesPerSecond = 0;
};

/// Throws UsageError.
Way ReadWay(const WayOptions& options);

/// The proxy for a URL. Throws UsageError when the environment names one that is unknown.
Proxy ProxyFor(const Way& way, const std::string& url);

void Apply(HTTPCls& http, const Way& way, const Proxy& proxy);

}  // namespace netro::tool
