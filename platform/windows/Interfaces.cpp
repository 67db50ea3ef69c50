#include "platform/Interfaces.h"

#include <algorithm>

#include "platform/ErrorNumbers.h"
#include "platform/windows/Adapters.h"

namespace netro {
namespace {

std::int32_t IndexOf(const IP_ADAPTER_ADDRESSES& adapter) {
  return static_cast<std::int32_t>(adapter.IfIndex != 0 ? adapter.IfIndex : adapter.Ipv6IfIndex);
}

InterfaceCounters ReadCounters(std::int32_t index) {
  MIB_IF_ROW2 row{};
  row.InterfaceIndex = static_cast<NET_IFINDEX>(index);
  if (GetIfEntry2(&row) != NO_ERROR) return {};
  return {row.InUcastPkts + row.InNUcastPkts,
          row.OutUcastPkts + row.OutNUcastPkts,
          row.InErrors,
          row.OutErrors,
          row.InDiscards,
          row.OutDiscards,
          0};
}

NetworkInterface Read(const IP_ADAPTER_ADDRESSES& adapter) {
  NetworkInterface found;
  found.index = IndexOf(adapter);
  found.name = Narrow(adapter.FriendlyName != nullptr ? adapter.FriendlyName : L"");
  found.loopback = adapter.IfType == IF_TYPE_SOFTWARE_LOOPBACK;
  found.ethernet = adapter.IfType == IF_TYPE_ETHERNET_CSMACD;
  if (adapter.PhysicalAddressLength == HardwareAddress().size() && !found.loopback) {
    std::copy_n(adapter.PhysicalAddress, HardwareAddress().size(), found.address.emplace().begin());
  }
  found.counters = ReadCounters(found.index);
  return found;
}

bool Has(const IP_ADAPTER_ADDRESSES& adapter, const IpAddress& ip) {
  for (const auto* entry = adapter.FirstUnicastAddress; entry != nullptr; entry = entry->Next) {
    const auto own = FromSystem(entry->Address.lpSockaddr);
    if (!own || !std::ranges::equal(own->Bytes(), ip.Bytes())) continue;
    if (ip.Scope() == 0 || ip.Scope() == own->Scope()) return true;
  }
  return false;
}

}  // namespace

std::int32_t ReadInterfaces(std::vector<NetworkInterface>& interfaces) {
  interfaces.clear();
  const Adapters adapters;
  for (const auto* adapter = adapters.First(); adapter != nullptr; adapter = adapter->Next) {
    interfaces.push_back(Read(*adapter));
  }
  std::ranges::sort(interfaces, {}, &NetworkInterface::index);
  return adapters.Error() == 0 ? 0 : SocketErrorNumber(static_cast<int>(adapters.Error()));
}

std::optional<NetworkInterface> InterfaceWithAddress(const IpAddress& ip) {
  const Adapters adapters;
  for (const auto* adapter = adapters.First(); adapter != nullptr; adapter = adapter->Next) {
    if (Has(*adapter, ip)) return Read(*adapter);
  }
  return std::nullopt;
}

}  // namespace netro
