// Reading of --proxy and --proxy-type. Thread: any.

#include "terminal/ProxyOption.h"

#include <algorithm>
#include <string_view>

#include "terminal/Command.h"
#include "terminal/Encoding.h"
#include "terminal/HostAndPort.h"

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
  proxy.password = PercentDecode(info.substr(std::min(colon + 1, info.size())));
  rest.remove_prefix(at + 1);
}

}  // namespace

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
