#include "platform/Interfaces.h"

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/socket.h>

#include "platform/linux/Netlink.h"

namespace netro {
namespace {

InterfaceCounters ReadCounters(NetlinkBytes value) {
  rtnl_link_stats64 stats{};  // older kernels send fewer fields
  if (!value.empty()) std::memcpy(&stats, value.data(), std::min(value.size(), sizeof stats));
  return {stats.rx_packets, stats.tx_packets, stats.rx_errors,        stats.tx_errors,
          stats.rx_dropped, stats.tx_dropped, stats.tx_aborted_errors};
}

std::optional<NetworkInterface> ReadLink(NetlinkBytes payload) {
  ifinfomsg link;
  if (!TakeNetlink(payload, link)) return std::nullopt;
  NetworkInterface found;
  found.index = link.ifi_index;
  found.loopback = (link.ifi_flags & IFF_LOOPBACK) != 0;
  found.ethernet = link.ifi_type == ARPHRD_ETHER;
  for (const std::uint8_t letter : FindAttribute(payload, IFLA_IFNAME))
    if (letter != 0) found.name += static_cast<char>(letter);
  const NetlinkBytes address = FindAttribute(payload, IFLA_ADDRESS);
  if (address.size() == HardwareAddress().size() && !found.loopback)
    std::ranges::copy(address, found.address.emplace().begin());
  found.counters = ReadCounters(FindAttribute(payload, IFLA_STATS64));
  return found;
}

}  // namespace

std::int32_t ReadInterfaces(std::vector<NetworkInterface>& interfaces) {
  interfaces.clear();
  const std::int32_t error =
      DumpNetlink(RTM_GETLINK, AF_UNSPEC, [&](std::uint16_t type, NetlinkBytes payload) {
        if (type != RTM_NEWLINK) return;
        if (auto link = ReadLink(payload)) interfaces.push_back(std::move(*link));
      });
  std::ranges::sort(interfaces, {}, &NetworkInterface::index);
  return error;
}

std::optional<NetworkInterface> InterfaceWithAddress(const IpAddress& ip) {
  std::optional<std::uint32_t> index;
  const std::uint8_t family = ip.IsIPv6() ? AF_INET6 : AF_INET;
  DumpNetlink(RTM_GETADDR, family, [&](std::uint16_t type, NetlinkBytes payload) {
    ifaddrmsg address;
    if (type != RTM_NEWADDR || index || !TakeNetlink(payload, address)) return;
    if (ip.Scope() != 0 && ip.Scope() != address.ifa_index) return;
    NetlinkBytes own = FindAttribute(payload, IFA_LOCAL);
    if (own.empty()) own = FindAttribute(payload, IFA_ADDRESS);  // IPv6 without a peer
    if (std::ranges::equal(own, ip.Bytes())) index = address.ifa_index;
  });
  std::vector<NetworkInterface> interfaces;
  if (!index || ReadInterfaces(interfaces) != 0) return std::nullopt;
  const auto found =
      std::ranges::find(interfaces, static_cast<std::int32_t>(*index), &NetworkInterface::index);
  if (found == interfaces.end()) return std::nullopt;
  return std::move(*found);
}

}  // namespace netro
