// Reads a NetBIOS node status reply. Whatever it says, a reply that is taken has its whole name
// table and statistics within it, and one that is not taken leaves nothing behind.

#include "diag/NodeStatus.h"
#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kSmallest = 12 + 1 + 10 + 1 + 46;  // with an empty name and no names
  const std::span<const std::uint8_t> reply(data, size);
  netro::AdapterStatus status;
  status.nameCount = -1;
  const bool read = netro::ReadNodeStatus(reply, status);
  if (read != (status.nameCount >= 0)) std::abort();
  if (read && size < kSmallest + 18 * static_cast<std::size_t>(status.nameCount)) std::abort();
  netro::MayAnswerNodeStatus(reply, 0x1234);
  return 0;
}
