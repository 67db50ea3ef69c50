// Reading of --proxy and --proxy-type. Thread: any.
#pragma once

#include <netro/ProxyTypes.h>

#include <cstdint>
#include <string>

namespace CLI {
class App;
}

namespace netro::tool {

struct Proxy {
  ProxyTypeEnum type = NoProxy;
  std::string host;
  std::int32_t port = 0;
  std::string user;
  std::string password;
  bool remoteDns = false;
  bool hasPassword = false;  // even if that is empty
};

/// The options as they were typed.
struct ProxyOptions {
  std::string address;
  std::string type;
  std::string passwordFile;
};

/// Declares --proxy-password-file.
void DeclareProxyPassword(CLI::App& options, std::string& file, const char* group);

/// Reads the password of the proxy's user from `file`, or asks for it where there is none and
/// somebody is there. Throws UsageError.
void CompletePassword(Proxy& proxy, const std::string& file);

/// The values of --proxy-type, for a help text: "basic, msisa, ...".
std::string ProxyTypeNames();

/// Reads "[scheme://][user[:password]@]host[:port]"; user and password may be percent-encoded.
/// `typeName` is one of the values of --proxy-type or empty; then the scheme decides, http when
/// there is none, and a user selects SOCKS 5 with authentication. An empty `address` is no proxy.
/// Throws UsageError.
Proxy ReadProxy(const std::string& address, const std::string& typeName);

}  // namespace netro::tool
