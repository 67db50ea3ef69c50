#include "platform/HostInfo.h"

#include <algorithm>
#include <memory>

#include "platform/ErrorNumbers.h"
#include "platform/windows/Adapters.h"

namespace netro {
namespace {

std::int32_t ResolveErrorNumber(int status) {
  switch (status) {
    case 0:
      return 0;
    case WSA_NOT_ENOUGH_MEMORY:
    case WSAENOBUFS:
    case WSAEMFILE:
      return kErrNoBuffers;
    case WSATRY_AGAIN:
    case WSANO_RECOVERY:
    case WSAENETDOWN:
      return kErrTryAgain;
    case WSANO_DATA:
      return kErrNoData;
    default:
      return kErrNoDnsEntries;
  }
}

}  // namespace

StackFacts ReadStackFacts() {
  StartSockets();
  StackFacts facts;
  WSADATA data{};
  if (WSAStartup(MAKEWORD(2, 2), &data) == 0) {  // counted: it goes on after this
    facts.description = std::string("NetroClasses sockets on ") + data.szDescription;
    facts.status = data.szSystemStatus;
    facts.major = LOBYTE(data.wVersion);
    facts.highestMajor = LOBYTE(data.wHighVersion);
    facts.highestMinor = HIBYTE(data.wHighVersion);
    WSACleanup();
  }
  facts.minor = 0;
  facts.description.resize(std::min<std::size_t>(facts.description.size(), 256));
  facts.mostSockets = 32'767;  // what this system says for any number
  return facts;
}

std::string ReadHostName() {
  StartSockets();
  char name[256] = {};
  return gethostname(name, sizeof name - 1) == 0 ? name : std::string();
}

std::vector<IpAddress> ReadHostAddresses() {
  std::vector<IpAddress> addresses;
  const Adapters adapters;
  for (const auto* adapter = adapters.First(); adapter != nullptr; adapter = adapter->Next) {
    if (adapter->OperStatus != IfOperStatusUp) continue;
    for (const auto* entry = adapter->FirstUnicastAddress; entry != nullptr; entry = entry->Next) {
      if (const auto address = FromSystem(entry->Address.lpSockaddr)) addresses.push_back(*address);
    }
  }
  std::stable_partition(addresses.begin(), addresses.end(),
                        [](const IpAddress& address) { return !address.IsLoopback(); });
  return addresses;
}

std::string ReadServiceName(std::int32_t port) {
  if (port < 1 || port > 65535) return {};
  StartSockets();
  const servent* const found = getservbyport(htons(static_cast<std::uint16_t>(port)), "tcp");
  return found != nullptr ? found->s_name : std::string();
}

std::int32_t ReadServicePort(const std::string& name) {
  if (name.find('\0') != std::string::npos) return 0;
  StartSockets();
  const servent* const found = getservbyname(name.c_str(), "tcp");
  return found != nullptr ? ntohs(static_cast<std::uint16_t>(found->s_port)) : 0;
}

std::vector<IpAddress> ResolveName(const std::string& name, AddressFamily family,
                                   std::int32_t& error) {
  StartSockets();
  ADDRINFOW wanted{};
  wanted.ai_family = family == AddressFamily::IPv6 ? AF_INET6 : AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  ADDRINFOW* list = nullptr;
  error = ResolveErrorNumber(GetAddrInfoW(Widen(name).c_str(), nullptr, &wanted, &list));
  std::vector<IpAddress> addresses;
  if (error != 0) return addresses;
  const std::unique_ptr<ADDRINFOW, decltype(&FreeAddrInfoW)> owner(list, &FreeAddrInfoW);
  for (const ADDRINFOW* entry = list; entry != nullptr; entry = entry->ai_next) {
    if (const auto address = FromSystem(entry->ai_addr)) addresses.push_back(*address);
  }
  if (addresses.empty()) error = kErrNoData;
  return addresses;
}

std::string ResolveAddress(const IpAddress& address, std::int32_t& error) {
  StartSockets();
  const SystemAddress system = ToSystem({address, 0});
  wchar_t name[NI_MAXHOST] = {};
  error = ResolveErrorNumber(
      GetNameInfoW(system.Generic(), system.size, name, NI_MAXHOST, nullptr, 0, NI_NAMEREQD));
  return error == 0 ? Narrow(name) : std::string();
}

}  // namespace netro
