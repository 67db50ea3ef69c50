#include "platform/IcmpExtensions.h"

#include "platform/IcmpPacket.h"
#include "support/ByteReader.h"

namespace netro {
namespace {

constexpr std::size_t kIcmpHeader = 8;
constexpr std::size_t kLeastQuoted = 128;
constexpr std::size_t kExtensionHeader = 4;
constexpr std::size_t kObjectHeader = 4;
constexpr std::size_t kMostLabels = 16;
constexpr std::uint8_t kVersion = 2;
constexpr std::uint16_t kMplsStack = 0x0101;  // class and type within it

bool MayHaveExtensions(AddressFamily family, std::uint8_t type) {
  if (family == AddressFamily::IPv6) return type == 1 || type == 3;
  return type == 3 || type == 11 || type == 12;
}

// A sum of zero says that there is none.
bool IsSound(std::span<const std::uint8_t> extensions, bool needsSum) {
  if (extensions.size() < kExtensionHeader || extensions[0] >> 4 != kVersion) return false;
  if (extensions[2] == 0 && extensions[3] == 0) return !needsSum;
  return InternetChecksum(extensions) == 0;
}

void ReadStack(ByteReader entries, std::vector<MplsLabel>& labels) {
  while (entries.Remaining() >= 4 && labels.size() < kMostLabels) {
    const std::uint32_t entry = entries.U32();
    labels.push_back({static_cast<std::int32_t>(entry >> 12),
                      static_cast<std::int32_t>(entry >> 9 & 7), (entry >> 8 & 1) != 0,
                      static_cast<std::int32_t>(entry & 0xFF)});
    if (labels.back().BottomOfStack) return;
  }
}

}  // namespace

std::span<const std::uint8_t> FindExtensions(AddressFamily family,
                                             std::span<const std::uint8_t> message) {
  if (message.size() < kIcmpHeader || !MayHaveExtensions(family, message[0])) return {};
  const std::size_t told =
      family == AddressFamily::IPv6 ? std::size_t{8} * message[4] : std::size_t{4} * message[5];
  const std::size_t quoted = told == 0 ? kLeastQuoted : told;
  if (quoted < kLeastQuoted || message.size() < kIcmpHeader + quoted) return {};
  const auto extensions = message.subspan(kIcmpHeader + quoted);
  return IsSound(extensions, told == 0) ? extensions : std::span<const std::uint8_t>();
}

std::vector<MplsLabel> ReadMplsLabels(std::span<const std::uint8_t> extensions) {
  std::vector<MplsLabel> labels;
  if (!IsSound(extensions, false)) return labels;
  ByteReader reader(extensions.subspan(kExtensionHeader));
  while (reader.Remaining() >= kObjectHeader) {
    const std::size_t length = reader.U16();
    const std::uint16_t kind = reader.U16();
    if (length < kObjectHeader || length - kObjectHeader > reader.Remaining()) return {};
    const auto object = reader.Take(length - kObjectHeader);
    if (kind == kMplsStack && labels.empty()) ReadStack(ByteReader(object), labels);
  }
  return labels;
}

}  // namespace netro
