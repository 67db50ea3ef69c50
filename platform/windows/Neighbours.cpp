// What the system knows stands in its table. It is made to ask by SendARP, or ResolveIpNetEntry2
// for IPv6, which wait for the answer and so run on a thread of their own.
#include "platform/Neighbours.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/HelperThread.h"
#include "platform/windows/System.h"

namespace netro {
namespace {

SOCKADDR_INET ToInet(const IpAddress& ip) {
  const SystemAddress system = ToSystem({ip, 0});
  SOCKADDR_INET inet{};
  std::memcpy(&inet, system.Generic(), static_cast<std::size_t>(system.size));
  return inet;
}

bool IsConfirmed(const MIB_IPNET_ROW2& row) {
  return row.State == NlnsPermanent || row.State == NlnsReachable;
}

bool IsInUse(const MIB_IPNET_ROW2& row) { return row.State == NlnsDelay || row.State == NlnsProbe; }

// A host may be known on several interfaces.
std::vector<MIB_IPNET_ROW2> ReadNeighbours(const IpAddress& ip) {
  MIB_IPNET_TABLE2* table = nullptr;
  const ADDRESS_FAMILY family = ip.IsIPv6() ? AF_INET6 : AF_INET;
  if (GetIpNetTable2(family, &table) != NO_ERROR) return {};
  const std::unique_ptr<MIB_IPNET_TABLE2, decltype(&FreeMibTable)> owner(table, &FreeMibTable);
  std::vector<MIB_IPNET_ROW2> found;
  for (ULONG i = 0; i < table->NumEntries; ++i) {
    const MIB_IPNET_ROW2& row = table->Table[i];
    const auto host = FromSystem(reinterpret_cast<const sockaddr*>(&row.Address));
    if (!host || !std::ranges::equal(host->Bytes(), ip.Bytes())) continue;
    if (ip.Scope() == 0 || ip.Scope() == row.InterfaceIndex) found.push_back(row);
  }
  return found;
}

std::optional<HardwareAddress> FindNeighbour(const IpAddress& ip, bool inUseToo) {
  for (const MIB_IPNET_ROW2& row : ReadNeighbours(ip)) {
    if (!IsConfirmed(row) && !(inUseToo && IsInUse(row))) continue;
    if (row.PhysicalAddressLength != HardwareAddress().size()) continue;
    HardwareAddress address;
    std::copy_n(row.PhysicalAddress, address.size(), address.begin());
    return address;
  }
  return std::nullopt;
}

// The system would use them for seconds before it asks the network. Only administrators may.
void ForgetUnconfirmed(const IpAddress& ip) {
  for (MIB_IPNET_ROW2& row : ReadNeighbours(ip)) {
    if (!IsConfirmed(row)) DeleteIpNetEntry2(&row);
  }
}

// The interface through which a host is reached without a gateway.
std::optional<MIB_IPFORWARD_ROW2> RouteOnLink(const IpAddress& ip) {
  const SOCKADDR_INET host = ToInet(ip);
  MIB_IPFORWARD_ROW2 route{};
  SOCKADDR_INET source{};
  if (GetBestRoute2(nullptr, ip.Scope(), nullptr, &host, 0, &route, &source) != NO_ERROR) {
    return std::nullopt;
  }
  const auto gateway = FromSystem(reinterpret_cast<const sockaddr*>(&route.NextHop));
  const bool onLink = !gateway || gateway->IsUnspecified();
  return onLink ? std::optional(route) : std::nullopt;
}

void AskNetwork(const IpAddress& ip, const MIB_IPFORWARD_ROW2& route) {
  if (ip.IsIPv4()) {
    ULONG address[2] = {};
    ULONG size = sizeof address;
    SendARP(static_cast<IPAddr>(ip.Bits()), 0, address, &size);
    return;
  }
  MIB_IPNET_ROW2 row{};
  row.Address = ToInet(ip);
  row.InterfaceLuid = route.InterfaceLuid;
  row.InterfaceIndex = route.InterfaceIndex;
  ResolveIpNetEntry2(&row, nullptr);
}

}  // namespace

std::optional<HardwareAddress> ConfirmedNeighbour(const IpAddress& ip) {
  return FindNeighbour(ip, false);
}

std::optional<HardwareAddress> KnownNeighbour(const IpAddress& ip) {
  return FindNeighbour(ip, true);
}

bool AskForNeighbour(const IpAddress& ip) {
  const auto route = RouteOnLink(ip);
  if (!route) return false;
  ForgetUnconfirmed(ip);
  return RunOnHelperThread([ip, route = *route] { AskNetwork(ip, route); });
}

}  // namespace netro
