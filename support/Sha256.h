// The SHA-256 message digest (RFC 6234). Thread: any, one object on one thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

/// Takes a message piece by piece.
class Sha256 {
 public:
  using Digest = std::array<std::uint8_t, 32>;

  void Update(std::string_view bytes);

  /// Ends the message and returns its digest. The object is of no use afterwards.
  Digest Finish();

 private:
  void AddBlock();

  std::array<std::uint32_t, 8> state_ = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                         0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::array<std::uint8_t, 64> block_ = {};
  std::size_t used_ = 0;      // bytes of block_ that are filled
  std::uint64_t length_ = 0;  // of the message, in bytes
};

/// The digest of `bytes` as 64 lower-case hexadecimal digits.
std::string Sha256Hex(std::string_view bytes);

}  // namespace netro
