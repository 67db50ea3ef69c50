// The MD5 message digest (RFC 1321). It serves HTTP Digest only; as protection against forgery MD5
// is long broken. Thread: any, one object on one thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

/// Takes a message piece by piece.
class Md5 {
 public:
  using Digest = std::array<std::uint8_t, 16>;

  void Update(std::string_view bytes);

  /// Ends the message and returns its digest. The object is of no use afterwards.
  Digest Finish();

 private:
  void AddBlock();

  std::array<std::uint32_t, 4> state_ = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  std::array<std::uint8_t, 64> block_ = {};
  std::size_t used_ = 0;      // bytes of block_ that are filled
  std::uint64_t length_ = 0;  // of the message, in bytes
};

/// The digest of `bytes` as 32 lower-case hexadecimal digits.
std::string Md5Hex(std::string_view bytes);

}  // namespace netro
