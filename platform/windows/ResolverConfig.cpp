#include "platform/ResolverConfig.h"

#include <algorithm>

#include "platform/SystemFiles.h"
#include "platform/windows/Adapters.h"

namespace netro {
namespace {

// Addresses of site-local servers that the system makes up where it knows none.
bool IsMadeUp(const std::string& server) { return server.starts_with("fec0:0:0:ffff::"); }

void AddServers(const Adapters& adapters, ResolverConfig& config) {
  for (const auto* adapter = adapters.First(); adapter != nullptr; adapter = adapter->Next) {
    if (adapter->OperStatus != IfOperStatusUp) continue;
    for (const auto* entry = adapter->FirstDnsServerAddress; entry; entry = entry->Next) {
      const auto address = FromSystem(entry->Address.lpSockaddr);
      const std::string server = address ? FormatAddress(*address) : std::string();
      if (server.empty() || IsMadeUp(server)) continue;
      if (std::ranges::find(config.servers, server) == config.servers.end()) {
        config.servers.push_back(server);
      }
    }
  }
}

// The host's own parameters: its domain, and the servers in the order in which it asks them.
bool AddParameters(ResolverConfig& config) {
  ULONG size = 0;
  if (GetNetworkParams(nullptr, &size) != ERROR_BUFFER_OVERFLOW) return false;
  std::vector<std::uint64_t> room(size / sizeof(std::uint64_t) + 1);
  auto* const facts = reinterpret_cast<FIXED_INFO*>(room.data());
  if (GetNetworkParams(facts, &size) != NO_ERROR) return false;
  config.domain = facts->DomainName;
  while (config.domain.ends_with('.')) config.domain.pop_back();
  if (!config.domain.empty()) config.search.push_back(config.domain);
  for (const IP_ADDR_STRING* entry = &facts->DnsServerList; entry; entry = entry->Next) {
    const std::string server = entry->IpAddress.String;
    if (ParseAddress(server)) config.servers.push_back(server);
  }
  return true;
}

}  // namespace

ResolverConfig ReadResolverConfig() {
  if (HasSystemRootForTests()) return ReadResolverFiles();
  ResolverConfig config;
  config.readable = AddParameters(config);
  AddServers(Adapters(), config);  // those of IPv6 stand only there
  return config;
}

std::uint64_t ResolverConfigStamp() {
  if (HasSystemRootForTests()) return ResolverFilesStamp();
  const ResolverConfig config = ReadResolverConfig();
  std::uint64_t stamp = std::hash<std::string>()(config.domain);
  for (const std::string& server : config.servers) {
    stamp = stamp * 0x9E3779B97F4A7C15U + std::hash<std::string>()(server);
  }
  return stamp;
}

}  // namespace netro
