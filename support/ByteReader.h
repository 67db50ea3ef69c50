// The one reader for bytes from the network: big-endian, never beyond the end. Used on the stack
// by whoever parses; thread: any, one object on one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace netro {

/// Reads forward through bytes that it does not own.
///
/// The first read that asks for more than is left fails the reader for good: that read and all
/// later ones give 0 or nothing, and `Ok()` is false. So a parser may read on and ask once at
/// the end.
class ByteReader {
 public:
  explicit ByteReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::uint8_t U8() { return static_cast<std::uint8_t>(Number<1>()); }
  std::uint16_t U16() { return static_cast<std::uint16_t>(Number<2>()); }
  std::uint32_t U32() { return Number<4>(); }

  /// The next `count` bytes; they live as long as the bytes given to the constructor.
  std::span<const std::uint8_t> Take(std::size_t count) {
    if (count > Remaining()) {
      ok_ = false;
    }
    if (!ok_) {
      return {};
    }
    const auto taken = bytes_.subspan(position_, count);
    position_ += count;
    return taken;
  }

  void Skip(std::size_t count) { Take(count); }

  /// Bytes left to read; 0 after a failure, so that a loop over them ends.
  std::size_t Remaining() const { return ok_ ? bytes_.size() - position_ : 0; }

  /// Bytes read so far.
  std::size_t Position() const { return position_; }

  bool Ok() const { return ok_; }

 private:
  template <std::size_t count>
  std::uint32_t Number() {
    const auto bytes = Take(count);
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < count && !bytes.empty(); ++i) {
      value = value << 8 | bytes[i];
    }
    return value;
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
  bool ok_ = true;
};

}  // namespace netro
