// Reading of --proxy and --proxy-type. Thread: any.
#pragma once

#include <netro/ProxyTypes.h>

#include <cstdint>
#include <string>

namespace netro::tool {

struct Proxy {
  ProxyTypeEnum type = NoProxy;
  std::string host;
  std::int32_t port = 0;
  std::string user;
  std::string password;
  bool remoteDns = false;
};

/// The values of --proxy-type, for a help text: "basic, msisa, ...".
std::string ProxyTypeNames();

/// Reads "[scheme://][user[:password]@]host[:port]"; user and password may be percent-encoded.
/// `typeName` is one of the values of --proxy-type or empty; then the scheme decides, http when
/// there is none, and a user selects SOCKS 5 with authentication. An empty `address` is no proxy.
/// Throws UsageError.
Proxy ReadProxy(const std::string& address, const std::string& typeName);

}  // namespace netro::tool
