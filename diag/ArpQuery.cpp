#include "diag/ArpQuery.h"

#include <algorithm>
#include <array>
#include <bit>

#include "platform/Interfaces.h"
#include "platform/Neighbours.h"

namespace netro {
namespace {

constexpr long kPatienceSeconds = 1;
constexpr std::chrono::milliseconds kPause(10);  // between two looks at the table

// Whether one host outside of this one can have it.
bool IsForOneHost(std::int32_t ip) {
  constexpr std::uint8_t kLoopback = 127, kFirstMulticast = 224;
  const std::uint8_t first = std::bit_cast<std::array<std::uint8_t, 4>>(ip)[0];
  return first != 0 && first != kLoopback && first < kFirstMulticast;
}

}  // namespace

std::optional<HardwareAddress> QueryHardwareAddress(std::int32_t ip, const CancelMark& mark) {
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
