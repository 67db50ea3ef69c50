#include "platform/Neighbours.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/linux/Descriptor.h"
#include "platform/linux/Netlink.h"

namespace netro {
namespace {

constexpr std::int32_t kDiscardPort = 9;
// Without NUD_NOARP: such an entry tells how the interface works, not who is there.
constexpr std::uint16_t kConfirmed = NUD_PERMANENT | NUD_REACHABLE;
// A stale entry in use: the kernel is about to have it confirmed, or is asking.
constexpr std::uint16_t kInUse = NUD_DELAY | NUD_PROBE;

struct Neighbour {
  ndmsg head{};
  std::optional<HardwareAddress> address;
};

std::uint8_t FamilyOf(const IpAddress& ip) { return ip.IsIPv6() ? AF_INET6 : AF_INET; }

// A host may be known on several interfaces.
std::vector<Neighbour> ReadNeighbours(const IpAddress& ip) {
  std::vector<Neighbour> found;
  DumpNetlink(RTM_GETNEIGH, FamilyOf(ip), [&](std::uint16_t type, NetlinkBytes payload) {
    Neighbour one;
    if (type != RTM_NEWNEIGH || !TakeNetlink(payload, one.head)) return;
    if (ip.Scope() != 0 && std::cmp_not_equal(ip.Scope(), one.head.ndm_ifindex)) return;
    if (!std::ranges::equal(FindAttribute(payload, NDA_DST), ip.Bytes())) return;
    const NetlinkBytes address = FindAttribute(payload, NDA_LLADDR);
    if (address.size() == HardwareAddress().size())
      std::ranges::copy(address, one.address.emplace().begin());
    found.push_back(one);
  });
  return found;
}

std::optional<HardwareAddress> FindNeighbour(const IpAddress& ip, std::uint16_t states) {
  for (const Neighbour& one : ReadNeighbours(ip))
    if ((one.head.ndm_state & states) != 0 && one.address) return one.address;
  return std::nullopt;
}

// A message about one host: a fixed part with the address as an attribute.
template <class Head>
struct AboutHost {
  AboutHost(const Head& fixed, std::uint16_t type, const IpAddress& ip) : head(fixed) {
    attribute.rta_type = type;
    attribute.rta_len = static_cast<std::uint16_t>(sizeof attribute + ip.Bytes().size());
    std::ranges::copy(ip.Bytes(), address);
  }
  NetlinkBytes Bytes() const {
    return {reinterpret_cast<const std::uint8_t*>(this), sizeof head + attribute.rta_len};
  }

  Head head;
  rtattr attribute{};
  std::uint8_t address[16] = {};
};

// The kernel would use them for seconds before it asks the network.
void ForgetUnconfirmed(const IpAddress& ip) {
  for (const Neighbour& one : ReadNeighbours(ip)) {
    if ((one.head.ndm_state & (NUD_STALE | kInUse)) == 0) continue;
    ndmsg head{};
    head.ndm_family = FamilyOf(ip);
    head.ndm_ifindex = one.head.ndm_ifindex;
    ChangeNetlink(RTM_DELNEIGH, AboutHost(head, NDA_DST, ip).Bytes());
  }
}

// Link-local addresses always are: the zone names the network.
bool IsOnLink(const IpAddress& ip) {
  if (ip.IsLinkLocal()) return true;
  rtmsg head{};
  head.rtm_family = FamilyOf(ip);
  head.rtm_dst_len = static_cast<std::uint8_t>(ip.Bytes().size() * 8);
  bool onLink = false;
  AskNetlink(RTM_GETROUTE, AboutHost(head, RTA_DST, ip).Bytes(),
             [&](std::uint16_t type, NetlinkBytes route) {
               if (type == RTM_NEWROUTE && TakeNetlink(route, head))
                 onLink = FindAttribute(route, RTA_GATEWAY).empty();
             });
  return onLink;
}

}  // namespace

std::optional<HardwareAddress> ConfirmedNeighbour(const IpAddress& ip) {
  return FindNeighbour(ip, kConfirmed);
}

std::optional<HardwareAddress> KnownNeighbour(const IpAddress& ip) {
  return FindNeighbour(ip, kConfirmed | kInUse);
}

bool AskForNeighbour(const IpAddress& ip) {
  ForgetUnconfirmed(ip);
  // IPv6 does not heed MSG_DONTROUTE.
  if (ip.IsIPv6() && !IsOnLink(ip)) return false;
  const int fd = socket(FamilyOf(ip), SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const SystemAddress host = ToSystem({ip, kDiscardPort});
  // Never through a gateway, which would tell strangers.
  const auto sent = sendto(fd, nullptr, 0, MSG_DONTROUTE | MSG_DONTWAIT, host.Generic(), host.size);
  close(fd);
  return sent == 0;
}

}  // namespace netro
