// The options about the way to a server that several subcommands have. Thread: any.
#pragma once

#include <netro/AddressPreference.h>

#include <cstdint>
#include <string>

#include "terminal/ProxyOption.h"

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct ConnectionOptions {
  std::string proxy;
  std::string proxyType;
  std::string dns;
  AddressPreferenceEnum preference = preferIPv4;
  std::int32_t timeout = 30;
};

/// Declares --proxy and --proxy-type; `use` begins the help text.
void DeclareProxyOptions(CLI::App& options, std::string& proxy, std::string& proxyType,
                         const std::string& use);

/// Declares these, --dns, -4, -6 and --timeout. `proxyUse` and `timeoutUse` begin the help
/// texts of the proxy and the time-out.
void DeclareConnectionOptions(CLI::App& options, ConnectionOptions& values,
                              const std::string& proxyUse, const std::string& timeoutUse);

/// Throws UsageError unless a time-out has 1 to `longest` seconds.
void CheckTimeout(std::int32_t seconds, std::int32_t longest);

/// As ReadProxy, for SOCKS proxies only; version 5 when nothing says otherwise. Throws UsageError.
Proxy ReadSocksProxy(const std::string& address, const std::string& typeName);

/// The number of a SOCKS proxy's kind in the enumerations that know no other kinds; 0 is none.
std::int32_t SocksNumber(ProxyTypeEnum type);

/// Makes a client object go through `proxy`.
template <class Client>
void UseProxy(Client& client, const Proxy& proxy) {
  using Type = decltype(client.ProxyType());
  client.ProxyType(static_cast<Type>(SocksNumber(proxy.type)));
  client.ProxyURL(proxy.host);
  client.ProxyPort(proxy.port);
  client.ProxyUser(proxy.user);
  client.ProxyPassword(proxy.password);
  client.ProxyUseRemoteDNS(proxy.remoteDns);
}

/// The same, and makes it ask the DNS servers named; `proxy` is the one that was read.
template <class Client>
void UseConnection(Client& client, const ConnectionOptions& options, const Proxy& proxy) {
  UseProxy(client, proxy);
  client.DNSURL(options.dns);
  client.AddressPreference(options.preference);
}

}  // namespace netro::tool
