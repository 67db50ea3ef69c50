// The options of "netro dns". Thread: any.
#pragma once

#include <netro/QueryDNSCLS.h>

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
struct DnsOptions {
  std::vector<std::string> words;  // names, types, and "@server"
  bool all = false;
  bool reverse = false;
  bool zone = false;
  std::string server;
  bool tcp = false;
  bool noRecursion = false;
  bool trace = false;
  std::int32_t edns = 0;
  bool dnssec = false;
  ProxyOptions proxy;
  std::int32_t parallel = 8;
  std::optional<double> timeout;
  bool brief = false;
  bool json = false;
};

void DeclareDnsOptions(CLI::App& options, DnsOptions& values);

/// One question, as the library takes it.
struct DnsRequest {
  std::string name;
  QueryEnum type = TYPE_A;
  bool zone = false;
  std::string server;  // empty: those of the system
  std::int32_t port = 53;
  bool tcp = false;
  bool recursion = true;
  std::int32_t udpSize = 0;
  bool dnssec = false;
  DNSProxyTypeEnum proxyType = NoDNSProxy;
  Proxy proxy;
  double timeout = 0;  // seconds; 0: no limit but those of the library
};

/// One for each type of each name. Throws UsageError.
std::vector<DnsRequest> ReadDnsRequests(const DnsOptions& options);

}  // namespace netro::tool
