#include <netro/FindDNSCLS.h>
#include <netro/SocketCls.h>

#include <new>
#include <utility>

#include "platform/ResolverConfig.h"

namespace netro {
namespace {

std::string LastTwoLabels(const std::string& domain) {
  const auto last = domain.rfind('.');
  if (last == domain.npos || last == 0) return domain;
  const auto before = domain.rfind('.', last - 1);
  return before == domain.npos ? domain : domain.substr(before + 1);
}

}  // namespace

const FindDNSCLS::Found& FindDNSCLS::Discover() const try {
  if (found_.count > 0) return found_;
  ResolverConfig config = ReadResolverConfig();
  // What was read before stays where it is while nothing is found.
  if (config.servers.empty() && config.domain == found_.localDomain) {
    found_.readable = config.readable;
    return found_;
  }
  config.servers.emplace_back();
  found_.rootDomain = LastTwoLabels(config.domain);
  found_.count = static_cast<std::int32_t>(config.servers.size()) - 1;
  found_.servers = std::move(config.servers);
  found_.localDomain = std::move(config.domain);
  found_.readable = config.readable;
  return found_;
} catch (const std::bad_alloc&) {  // the next read looks again
  return found_;
}

const std::vector<std::string>& FindDNSCLS::Servers() const { return Discover().servers; }
std::int32_t FindDNSCLS::Count() const { return Discover().count; }
const std::string& FindDNSCLS::LocalDomain() const { return Discover().localDomain; }
const std::string& FindDNSCLS::RootDomain() const { return Discover().rootDomain; }
bool FindDNSCLS::CanUseIPHlpApi() const { return Discover().readable; }

bool FindDNSCLS::IsIPReachable(const std::string& IP) const {
  return SocketCls().IsIPReachable(IP);
}

void FindDNSCLS::Kill() {
  found_.count = 0;
  found_.servers.resize(1);
  found_.servers[0].clear();
  found_.localDomain.clear();
  found_.rootDomain.clear();
  found_.readable = false;
}

}  // namespace netro
