// Reads the extensions of an ICMP error and their MPLS labels, of the family that the first byte
// tells; and the same bytes as an extension structure by itself.
#include <netro/Types.h>

#include "fuzz/Fuzz.h"
#include "platform/IcmpExtensions.h"

namespace {

void Check(std::span<const std::uint8_t> extensions) {
  const auto labels = netro::ReadMplsLabels(extensions);
  if (labels.size() > 16 || 4 * labels.size() > extensions.size()) std::abort();
  for (const netro::MplsLabel& label : labels) {
    if (label.Label < 0 || label.Label > 0xFFFFF || label.TrafficClass > 7 || label.TTL > 255) {
      std::abort();
    }
    if (label.BottomOfStack && &label != &labels.back()) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // A copy of exactly this size lets AddressSanitizer see a read past the end.
  const netro::Bytes input(data + 1, data + size);
  const auto family = (data[0] & 1) != 0 ? netro::AddressFamily::IPv6 : netro::AddressFamily::IPv4;
  const auto found = netro::FindExtensions(family, input);
  if (!found.empty() && found.data() + found.size() != input.data() + input.size()) std::abort();
  Check(found);
  Check(input);
  return 0;
}
