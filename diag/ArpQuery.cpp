#include "diag/ArpQuery.h"

#include <algorithm>

#include "platform/Interfaces.h"
#include "platform/Neighbours.h"

namespace netro {
namespace {

constexpr long kPatienceSeconds = 1;
constexpr std::chrono::milliseconds kPause(10);  // between two looks at the table

// Whether it tells one host outside of this one.
bool IsForOneHost(const IpAddress& ip) {
  constexpr std::uint8_t kFirstMulticast = 224, kMulticast6 = 0xFF;
  if (ip.IsUnspecified() || ip.IsLoopback()) return false;
  if (ip.IsLinkLocal() && ip.Scope() == 0) return false;
  const std::uint8_t first = ip.Bytes()[0];
  return ip.IsIPv6() ? first != kMulticast6 : first != 0 && first < kFirstMulticast;
}

}  // namespace

std::optional<HardwareAddress> QueryHardwareAddress(const IpAddress& ip, const CancelMark& mark) {
  if (!IsForOneHost(ip)) return std::nullopt;
  if (const auto own = InterfaceWithAddress(ip)) return own->address;
  auto found = ConfirmedNeighbour(ip);
  if (found || !AskForNeighbour(ip)) return found;
  const TimePoint deadline = SecondsFromNow(kPatienceSeconds);
  while (!(found = KnownNeighbour(ip)) && !mark.Cancelled() && !mark.Expired(deadline))
    WaitUntil(mark, std::min(deadline, Now() + kPause), [] { return false; });
  if (mark.Cancelled()) return std::nullopt;
  return found;
}

}  // namespace netro
