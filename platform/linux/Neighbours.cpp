#include "platform/Neighbours.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

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

// A host may be known on several interfaces.
std::vector<Neighbour> ReadNeighbours(std::int32_t ip) {
  std::vector<Neighbour> found;
  DumpNetlink(RTM_GETNEIGH, AF_INET, [&](std::uint16_t type, NetlinkBytes payload) {
    Neighbour one;
    if (type != RTM_NEWNEIGH || !TakeNetlink(payload, one.head)) return;
    NetlinkBytes host = FindAttribute(payload, NDA_DST);
    std::int32_t hostIp = 0;
    if (!TakeNetlink(host, hostIp) || hostIp != ip) return;
    const NetlinkBytes address = FindAttribute(payload, NDA_LLADDR);
    if (address.size() == HardwareAddress().size())
      std::ranges::copy(address, one.address.emplace().begin());
    found.push_back(one);
  });
  return found;
}

std::optional<HardwareAddress> FindNeighbour(std::int32_t ip, std::uint16_t states) {
  for (const Neighbour& one : ReadNeighbours(ip))
    if ((one.head.ndm_state & states) != 0 && one.address) return one.address;
  return std::nullopt;
}

// The kernel would use them for seconds before it asks the network.
void ForgetUnconfirmed(std::int32_t ip) {
  struct Request {
    ndmsg head;
    rtattr attribute;
    std::int32_t ip;
  };
  for (const Neighbour& one : ReadNeighbours(ip)) {
    if ((one.head.ndm_state & (NUD_STALE | kInUse)) == 0) continue;
    Request request{};
    request.head.ndm_family = AF_INET;
    request.head.ndm_ifindex = one.head.ndm_ifindex;
    request.attribute.rta_type = NDA_DST;
    request.attribute.rta_len = sizeof request.attribute + sizeof ip;
    request.ip = ip;
    ChangeNetlink(RTM_DELNEIGH, {reinterpret_cast<const std::uint8_t*>(&request), sizeof request});
  }
}

}  // namespace

std::optional<HardwareAddress> ConfirmedNeighbour(std::int32_t ip) {
  return FindNeighbour(ip, kConfirmed);
}

std::optional<HardwareAddress> KnownNeighbour(std::int32_t ip) {
  return FindNeighbour(ip, kConfirmed | kInUse);
}

bool AskForNeighbour(std::int32_t ip) {
  ForgetUnconfirmed(ip);
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const SystemAddress host = ToSystem({IpAddress::V4(ip), kDiscardPort});
  // Never through a gateway, which would tell strangers.
  const auto sent = sendto(fd, nullptr, 0, MSG_DONTROUTE | MSG_DONTWAIT, host.Generic(), host.size);
  close(fd);
  return sent == 0;
}

}  // namespace netro
