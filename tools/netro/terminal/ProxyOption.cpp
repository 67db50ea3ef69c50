// Reading of --proxy and --proxy-type. Thread: any.

#include "terminal/ProxyOption.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

#include "terminal/Command.h"
#include "terminal/Encoding.h"
#include "terminal/HostAndPort.h"
#include "terminal/Secret.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kHttpPort = 8080;
constexpr std::int32_t kSocksPort = 1080;

struct Kind {
  std::string_view name;
  ProxyTypeEnum type;
  bool remoteDns;
};

constexpr Kind kTypes[] = {
    {"basic", ProxyBasicAuthorization, false},
    {"msisa", ProxyMSISAServer, false},
    {"pipe", ProxyPipe, false},
    {"socks4", ProxySocks4, false},
    {"socks4a", ProxySocks4, true},
    {"socks5", ProxySocks5NoAuth, false},
    {"socks5-auth", ProxySocks5Auth, false},
};

constexpr Kind kSchemes[] = {
    {"http", ProxyBasicAuthorization, false}, {"socks4", ProxySocks4, false},
    {"socks4a", ProxySocks4, true},           {"socks5", ProxySocks5NoAuth, false},
    {"socks5h", ProxySocks5NoAuth, true},
};

template <class Kinds>
std::string NamesOf(const Kinds& kinds) {
  std::string names;
  for (const Kind& kind : kinds) names.append(names.empty() ? "" : ", ").append(kind.name);
  return names;
}

template <class Kinds>
const Kind& Find(const Kinds& kinds, std::string_view name, const char* what) {
  const auto found = std::ranges::find(kinds, name, &Kind::name);
  if (found == std::end(kinds)) {
    throw UsageError(std::string(what) + " \"" + std::string(name) + "\" is unknown; known are " +
                     NamesOf(kinds));
  }
  return *found;
}

bool IsSocks(ProxyTypeEnum type) {
  return type == ProxySocks4 || type == ProxySocks5NoAuth || type == ProxySocks5Auth;
}

/// Takes "user:password@" off the front of `rest`.
void TakeUser(std::string_view& rest, Proxy& proxy) {
  const std::size_t at = rest.rfind('@');
  if (at == rest.npos) return;
  const std::string_view info = rest.substr(0, at);
  const std::size_t colon = std::min(info.find(':'), info.size());
  proxy.user = PercentDecode(info.substr(0, colon));
  proxy.hasPassword = colon < info.size();
  proxy.password = PercentDecode(info.substr(std::min(colon + 1, info.size())));
  rest.remove_prefix(at + 1);
}

}  // namespace

void DeclareProxyPassword(CLI::App& options, std::string& file, const char* group) {
  options
      .add_option("--proxy-password-file", file,
                  "Take the proxy's password from the first line of this file; - is\n"
                  "standard input. Without one it is asked for on the terminal")
      ->type_name("FILE")
      ->group(group);
}

void CompletePassword(Proxy& proxy, const std::string& file) {
  constexpr const char* kOption = "--proxy-password-file";
  if (!file.empty()) {
    if (proxy.user.empty()) throw UsageError(std::string(kOption) + " needs --proxy USER@HOST");
    if (proxy.hasPassword)
      throw UsageError(std::string(kOption) + ": --proxy has a password already");
    proxy.password = ReadPasswordFile(kOption, file);
  } else if (!proxy.user.empty() && !proxy.hasPassword && proxy.type != ProxySocks4 &&
             CanAskPassword()) {
    proxy.password = AskPassword("Password of " + proxy.user + " at the proxy: ");
  }
}

std::string ProxyTypeNames() { return NamesOf(kTypes); }

Proxy ReadProxy(const std::string& address, const std::string& typeName) {
  Proxy proxy;
  if (address.empty()) {
    if (!typeName.empty()) throw UsageError("--proxy-type needs --proxy");
    return proxy;
  }
  std::string_view rest = address;
  const std::size_t end = rest.find("://");
  const Kind& scheme =
      Find(kSchemes, end == rest.npos ? "http" : rest.substr(0, end), "--proxy: the scheme");
  rest.remove_prefix(end == rest.npos ? 0 : end + 3);
  TakeUser(rest, proxy);
  ReadHostAndPort("--proxy", rest.substr(0, rest.find('/')), proxy.host, proxy.port);

  proxy.type = scheme.type;
  proxy.remoteDns = scheme.remoteDns;
  if (!typeName.empty()) {
    const Kind& kind = Find(kTypes, typeName, "--proxy-type");
    proxy.type = kind.type;
    proxy.remoteDns = proxy.remoteDns || kind.remoteDns;
  } else if (proxy.type == ProxySocks5NoAuth && !proxy.user.empty()) {
    proxy.type = ProxySocks5Auth;
  }
  if (proxy.port == 0) proxy.port = IsSocks(proxy.type) ? kSocksPort : kHttpPort;
  return proxy;
}

}  // namespace netro::tool
