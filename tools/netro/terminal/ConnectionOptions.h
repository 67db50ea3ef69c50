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
  ProxyOptions proxy;
  std::string dns;
  AddressPreferenceEnum preference = preferIPv4;
  double timeout = 30;  // seconds
};

/// Declares --proxy, --proxy-type and --proxy-password-file; `use` begins the help text, `names`
/// are those of the first.
void DeclareProxyOptions(CLI::App& options, ProxyOptions& values, const std::string& use,
                         const std::string& names = "-x,--proxy");

/// Declares these, --dns, -4, -6 and --timeout. `proxyUse` and `timeoutUse` begin the help
/// texts of the proxy and the time-out.
void DeclareConnectionOptions(CLI::App& options, ConnectionOptions& values,
                              const std::string& proxyUse, const std::string& timeoutUse);

/// As ReadProxy, for SOCKS proxies only, with its password; version 5 when nothing says otherwise.
/// Throws UsageError.
Proxy ReadSocksProxy(const ProxyOptions& options);

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
