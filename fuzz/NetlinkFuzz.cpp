// Walks through a datagram of the kernel's, and in each message behind a fixed part of any size,
// which the first byte tells: whatever the length fields say, all that is found lies within.
#include "fuzz/Fuzz.h"
#include "platform/linux/Netlink.h"

namespace {

bool IsWithin(FuzzBytes part, FuzzBytes whole) {
  return part.empty() || (part.data() >= whole.data() &&
                          part.data() + part.size() <= whole.data() + whole.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzBytes datagram(data, size);
  const std::size_t fixed = TakeByte(datagram);
  std::size_t read = 0;
  netro::WalkNetlink(datagram, [&](std::uint16_t, netro::NetlinkBytes payload) {
    read += 16 + payload.size();  // with its header
    Require(read <= size && IsWithin(payload, datagram));
    const FuzzBytes attributes = payload.subspan(std::min(fixed, payload.size()));
    for (std::uint16_t type = 0; type < 8; ++type) {
      const FuzzBytes value = netro::FindAttribute(attributes, type);
      Require(IsWithin(value, attributes));
    }
  });
  return 0;
}
