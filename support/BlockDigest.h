// What MD5 and SHA-256 share: blocks of 64 bytes, the last padded and ended by the length of the
// message, and a state of 32-bit words that is the digest.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

using DigestBlock = std::array<std::uint8_t, 64>;

/// Takes a message piece by piece. `Hash` has `AddBlock(block, state)`, a static function, and the
/// words that its state begins with, `kInitial`; numbers become bytes in the order `kOrder`.
template <class Hash, std::size_t kWords, std::endian kOrder>
class BlockDigest {
 public:
  using State = std::array<std::uint32_t, kWords>;
  using Digest = std::array<std::uint8_t, 4 * kWords>;

  void Update(std::string_view bytes) {
    length_ += bytes.size();
    while (!bytes.empty()) {
      const std::size_t count = std::min(bytes.size(), block_.size() - used_);
      std::copy_n(bytes.begin(), count, block_.begin() + static_cast<std::ptrdiff_t>(used_));
      bytes.remove_prefix(count);
      used_ += count;
      if (used_ < block_.size()) return;
      Hash::AddBlock(block_, state_);
      used_ = 0;
    }
  }

  /// Ends the message and returns its digest. The object is of no use afterwards.
  Digest Finish() {
    const std::uint64_t bits = length_ * 8;
    // One bit "1", then zeros up to eight bytes short of a full block, then the length in bits.
    Update(std::string(1, '\x80').append((119 - used_) % 64, '\0'));
    std::string tail;
    for (std::size_t i = 0; i < 8; ++i) tail += static_cast<char>(ByteOf(bits, i));
    Update(tail);

    Digest digest;
    for (std::size_t i = 0; i < digest.size(); ++i) digest[i] = ByteOf(state_[i / 4], i % 4);
    return digest;
  }

 private:
  template <class Number>
  static std::uint8_t ByteOf(Number number, std::size_t at) {
    const std::size_t byte = kOrder == std::endian::little ? at : sizeof number - 1 - at;
    return static_cast<std::uint8_t>(number >> (8 * byte));
  }

  State state_ = Hash::kInitial;
  DigestBlock block_ = {};
  std::size_t used_ = 0;      // bytes of block_ that are filled
  std::uint64_t length_ = 0;  // of the message, in bytes
};

/// The digest of `bytes` in lower-case hexadecimal digits.
template <class Hash>
std::string DigestHex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  Hash hash;
  hash.Update(bytes);
  std::string hex;
  for (const std::uint8_t byte : hash.Finish()) {
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
  }
  return hex;
}

}  // namespace netro
