// The SHA-256 message digest (RFC 6234). Thread: any, one object on one thread at a time.
#pragma once

#include "support/BlockDigest.h"

namespace netro {

struct Sha256Steps {
  static constexpr std::array<std::uint32_t, 8> kInitial = {0x6a09e667, 0xbb67ae85, 0x3c6ef372,
                                                            0xa54ff53a, 0x510e527f, 0x9b05688c,
                                                            0x1f83d9ab, 0x5be0cd19};
  static void AddBlock(const DigestBlock& block, std::array<std::uint32_t, 8>& state);
};

using Sha256 = BlockDigest<Sha256Steps, 8, std::endian::big>;

/// The digest of `bytes` as 64 lower-case hexadecimal digits.
inline std::string Sha256Hex(std::string_view bytes) { return DigestHex<Sha256>(bytes); }

}  // namespace netro
