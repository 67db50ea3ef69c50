#include "platform/HostInfo.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "platform/ErrorNumbers.h"
#include "platform/Sockets.h"
#include "platform/linux/Descriptor.h"

namespace netro {
namespace {

constexpr std::size_t kTableSpace = 16'384;  // for an entry of the system's tables

std::int32_t DescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  return static_cast<std::int32_t>(std::min<rlim_t>(limit.rlim_cur, 1'000'000'000));
}

bool IsLoopback(std::int32_t ip) {
  return (ntohl(static_cast<std::uint32_t>(ip)) >> 24) == IN_LOOPBACKNET;
}

}  // namespace

StackFacts ReadStackFacts() {
  StackFacts facts;
  utsname system{};
  facts.description = "NetroClasses sockets";
  if (uname(&system) == 0)
    facts.description += std::string(" on ") + system.sysname + " " + system.release;
  facts.description.resize(std::min<std::size_t>(facts.description.size(), 256));
  facts.status = "Running";
  facts.mostSockets = DescriptorLimit();
  facts.major = facts.highestMajor = facts.highestMinor = 2;
  return facts;
}

std::string ReadHostName() {
  char name[HOST_NAME_MAX + 1] = {};
  if (gethostname(name, HOST_NAME_MAX) != 0) return {};
  return name;
}

std::vector<std::int32_t> ReadHostAddresses() {
  std::vector<std::int32_t> addresses;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return addresses;
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    if ((entry->ifa_flags & IFF_UP) == 0) continue;
    addresses.push_back(FromSystem(*reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)).ip);
  }
  std::stable_partition(addresses.begin(), addresses.end(),
                        [](std::int32_t ip) { return !IsLoopback(ip); });
  return addresses;
}

std::string ReadServiceName(std::int32_t port) {
  if (port < 1 || port > 65535) return {};
  std::vector<char> space(kTableSpace);
  servent entry{};
  servent* found = nullptr;
  getservbyport_r(htons(static_cast<std::uint16_t>(port)), "tcp", &entry, space.data(),
                  space.size(), &found);
  return found != nullptr ? found->s_name : std::string();
}

std::int32_t ReadServicePort(const std::string& name) {
  if (name.find('\0') != std::string::npos) return 0;
  std::vector<char> space(kTableSpace);
  servent entry{};
  servent* found = nullptr;
  getservbyname_r(name.c_str(), "tcp", &entry, space.data(), space.size(), &found);
  return found != nullptr ? ntohs(static_cast<std::uint16_t>(found->s_port)) : 0;
}

std::optional<std::int32_t> ResolveName(const std::string& name, std::int32_t& error) {
  addrinfo wanted{};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int status = getaddrinfo(name.c_str(), nullptr, &wanted, &list);
  error = status == EAI_SYSTEM || status == EAI_MEMORY ? kErrNoBuffers : kErrNoDnsEntries;
  if (status != 0) return std::nullopt;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
  if (list == nullptr || list->ai_addr == nullptr) return std::nullopt;
  return FromSystem(*reinterpret_cast<const sockaddr_in*>(list->ai_addr)).ip;
}

std::string ResolveAddress(std::int32_t ip) {
  const sockaddr_in address = ToSystem({ip, 0});
  char name[NI_MAXHOST] = {};
  if (getnameinfo(reinterpret_cast<const sockaddr*>(&address), sizeof address, name, sizeof name,
                  nullptr, 0, NI_NAMEREQD) != 0) {
    return {};
  }
  return name;
}

}  // namespace netro
