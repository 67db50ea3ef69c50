#include "web/PublicAddress.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "support/ByteReader.h"

namespace netro {
namespace {

struct Network {
  std::uint32_t address;
  int bits;
};

constexpr Network kNotPublic[] = {
    {0x0000'0000, 8},   // this network
    {0x0A00'0000, 8},   // private
    {0x6440'0000, 10},  // shared by providers
    {0x7F00'0000, 8},   // loopback
    {0xA9FE'0000, 16},  // link-local
    {0xAC10'0000, 12},  // private
    {0xC000'0000, 24},  // protocol assignments
    {0xC0A8'0000, 16},  // private
    {0xC612'0000, 15},  // benchmarks
    {0xE000'0000, 3},   // multicast and reserved
};

bool IsPublic(std::uint32_t v4) {
  return std::ranges::none_of(kNotPublic, [v4](const Network& network) {
    return (v4 ^ network.address) >> (32 - network.bits) == 0;
  });
}

// RFC 6052's prefix, 6to4, and all that is not global unicast.
bool IsPublic(std::span<const std::uint8_t> v6) {
  constexpr std::array<std::uint8_t, 12> kTranslated = {0, 0x64, 0xFF, 0x9B};
  if (std::ranges::equal(v6.first(12), kTranslated)) {
    return IsPublic(ByteReader(v6.subspan(12)).U32());
  }
  const std::uint32_t begin = ByteReader(v6).U32();
  const bool teredo = begin == 0x2001'0000;
  if (begin >> 16 == 0x2002) return IsPublic(ByteReader(v6.subspan(2)).U32());
  return begin >> 29 == 1 && !teredo;
}

}  // namespace

bool IsPublic(const IpAddress& address) {
  const auto bytes = address.Bytes();
  if (bytes.empty()) return false;
  return address.IsIPv4() ? IsPublic(ByteReader(bytes).U32()) : IsPublic(bytes);
}

bool IsPublicAddress(const std::string& address) {
  return IsPublic(ParseAddress(address).value_or(IpAddress()));
}

}  // namespace netro
