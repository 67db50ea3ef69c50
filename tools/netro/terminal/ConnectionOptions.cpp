// The options about the way to a server that several subcommands have.

#include "terminal/ConnectionOptions.h"

#include <CLI/CLI.hpp>

#include "terminal/Command.h"
#include "terminal/FamilyOptions.h"

namespace netro::tool {
namespace {

constexpr const char* kGroup = "Connection";

}  // namespace

void DeclareProxyOptions(CLI::App& options, ProxyOptions& values, const std::string& use,
                         const std::string& names) {
  options
      .add_option(names, values.address,
                  use +
                      " [SCHEME://][USER[:PASSWORD]@]HOST[:PORT];\n"
                      "schemes are socks5 (the default), socks5h, socks4, socks4a;\n"
                      "with socks4a and socks5h the proxy looks up the server's name")
      ->type_name("PROXY")
      ->group(kGroup);
  options
      .add_option("--proxy-type", values.type,
                  "Instead of the scheme's: socks4, socks4a, socks5, socks5-auth")
      ->type_name("TYPE")
      ->group(kGroup);
  DeclareProxyPassword(options, values.passwordFile, kGroup);
}

void DeclareConnectionOptions(CLI::App& options, ConnectionOptions& values,
                              const std::string& proxyUse, const std::string& timeoutUse) {
  DeclareProxyOptions(options, values.proxy, proxyUse);
  options.add_option("--dns", values.dns, "DNS servers to ask, as host[:port],host[:port]")
      ->type_name("SERVERS")
      ->group(kGroup);
  DeclareFamilyOptions(options, values.preference, kGroup);
  options.add_option("-t,--timeout", values.timeout, timeoutUse + "; 30 if not given")
      ->type_name("SECONDS")
      ->group(kGroup);
}

Proxy ReadSocksProxy(const ProxyOptions& options) {
  const std::string& address = options.address;
  const bool bare = !address.empty() && address.find("://") == address.npos;
  Proxy proxy = ReadProxy((bare ? "socks5://" : "") + address, options.type);
  if (proxy.type != NoProxy && SocksNumber(proxy.type) == 0) {
    throw UsageError("--proxy: only a SOCKS proxy can be used");
  }
  CompletePassword(proxy, options.passwordFile);
  return proxy;
}

std::int32_t SocksNumber(ProxyTypeEnum type) {
  switch (type) {
    case ProxySocks4:
      return 1;
    case ProxySocks5NoAuth:
      return 2;
    case ProxySocks5Auth:
      return 3;
    default:
      return 0;
  }
}

}  // namespace netro::tool
