// The MD5 message digest (RFC 1321). It serves HTTP Digest and CRAM-MD5 only; as protection against
// forgery MD5 is long broken. Thread: any, one object on one thread at a time.
#pragma once

#include "support/BlockDigest.h"

namespace netro {

struct Md5Steps {
  static constexpr std::array<std::uint32_t, 4> kInitial = {0x67452301, 0xefcdab89, 0x98badcfe,
                                                            0x10325476};
  static void AddBlock(const DigestBlock& block, std::array<std::uint32_t, 4>& state);
};

using Md5 = BlockDigest<Md5Steps, 4, std::endian::little>;

/// The digest of `bytes` as 32 lower-case hexadecimal digits.
inline std::string Md5Hex(std::string_view bytes) { return DigestHex<Md5>(bytes); }

}  // namespace netro
