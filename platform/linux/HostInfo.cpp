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
#include <cstring>
#include <memory>
#include <optional>

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

std::optional<IpAddress> Read(const sockaddr* name) {
  SystemAddress system;
  const sa_family_t family = name != nullptr ? name->sa_family : sa_family_t{AF_UNSPEC};
  if (family != AF_INET && family != AF_INET6) return std::nullopt;
  std::memcpy(&system.v6, name, family == AF_INET ? sizeof system.v4 : sizeof system.v6);
  return FromSystem(system).ip;
}

// The resolver says of a name that it is unknown when it could not open what it would look into.
std::int32_t ResolveErrorNumber(int status, int systemError) {
  const bool isShort = systemError == EMFILE || systemError == ENFILE || systemError == ENOMEM ||
                       systemError == ENOBUFS;
  if (status != 0 && isShort) return kErrNoBuffers;
  switch (status) {
    case 0:
      return 0;
    case EAI_SYSTEM:
    case EAI_MEMORY:
      return kErrNoBuffers;
    case EAI_AGAIN:
    case EAI_FAIL:
      return kErrTryAgain;
    case EAI_NODATA:
    case EAI_ADDRFAMILY:
      return kErrNoData;
    default:
      return kErrNoDnsEntries;
  }
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

std::vector<IpAddress> ReadHostAddresses() {
  std::vector<IpAddress> addresses;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return addresses;
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if ((entry->ifa_flags & IFF_UP) == 0) continue;
    if (const auto address = Read(entry->ifa_addr)) addresses.push_back(*address);
  }
  std::stable_partition(addresses.begin(), addresses.end(),
                        [](const IpAddress& address) { return !address.IsLoopback(); });
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

std::vector<IpAddress> ResolveName(const std::string& name, AddressFamily family,
                                   std::int32_t& error) {
  addrinfo wanted{};
  wanted.ai_family = family == AddressFamily::IPv6 ? AF_INET6 : AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  errno = 0;
  const int status = getaddrinfo(name.c_str(), nullptr, &wanted, &list);
  error = ResolveErrorNumber(status, errno);
  std::vector<IpAddress> addresses;
  if (error != 0) return addresses;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    if (const auto address = Read(entry->ai_addr)) addresses.push_back(*address);
  }
  if (addresses.empty()) error = kErrNoData;
  return addresses;
}

std::string ResolveAddress(const IpAddress& address, std::int32_t& error) {
  const SystemAddress system = ToSystem({address, 0});
  char name[NI_MAXHOST] = {};
  errno = 0;
  const int status =
      getnameinfo(system.Generic(), system.size, name, sizeof name, nullptr, 0, NI_NAMEREQD);
  error = ResolveErrorNumber(status, errno);
  return error == 0 ? name : std::string();
}

}  // namespace netro
