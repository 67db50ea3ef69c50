// What the system says about its adapters.

#include "terminal/SystemAdapters.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

namespace netro::tool {
namespace {

std::string TextOf(const sockaddr* address) {
  const socklen_t size =
      address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  char text[NI_MAXHOST] = {};
  return getnameinfo(address, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0 ? text : "";
}

std::string MacOf(const sockaddr& address) {
  constexpr std::size_t kSize = 6;
  sockaddr_ll link{};
  std::memcpy(&link, &address, sizeof link);
  if (link.sll_halen != kSize) return "";
  std::string text;
  for (std::size_t i = 0; i < kSize; ++i) {
    char digits[4];
    std::snprintf(digits, sizeof digits, i == 0 ? "%02X" : ":%02X", link.sll_addr[i]);
    text += digits;
  }
  return text;
}

SystemAdapter& AdapterOf(std::vector<SystemAdapter>& adapters, const ifaddrs& entry) {
  const auto found = std::ranges::find(adapters, entry.ifa_name, &SystemAdapter::name);
  if (found != adapters.end()) return *found;
  const auto has = [&entry](unsigned flag) { return (entry.ifa_flags & flag) != 0; };
  return adapters.emplace_back(SystemAdapter{
      .name = entry.ifa_name,
      .isUp = has(IFF_UP) && has(IFF_RUNNING),
      .isEnabled = has(IFF_UP),
      .isLoopback = has(IFF_LOOPBACK),
      .asksNeighbours = !has(IFF_NOARP) && !has(IFF_LOOPBACK) && !has(IFF_POINTOPOINT),
      .mac = {},
      .addresses = {}});
}

}  // namespace

std::vector<SystemAdapter> ReadAdapters() {
  std::vector<SystemAdapter> adapters;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return adapters;
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    SystemAdapter& adapter = AdapterOf(adapters, *entry);
    if (entry->ifa_addr == nullptr) continue;
    const int family = entry->ifa_addr->sa_family;
    if (family == AF_PACKET) adapter.mac = MacOf(*entry->ifa_addr);
    if (family == AF_INET || family == AF_INET6)
      adapter.addresses.push_back(TextOf(entry->ifa_addr));
  }
  return adapters;
}

}  // namespace netro::tool
