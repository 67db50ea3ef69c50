// The one writer for bytes that go to the network: big-endian, growing as needed. Used on the stack
// by whoever composes a message; thread: any, one object on one thread at a time.
#pragma once

#include <netro/Types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

namespace netro {

class ByteWriter {
 public:
  ByteWriter() = default;
  /// With room for so many bytes.
  explicit ByteWriter(std::size_t expected) { bytes_.reserve(expected); }

  void U8(std::uint8_t value) { bytes_.push_back(value); }

  void U16(std::uint16_t value) {
    U8(static_cast<std::uint8_t>(value >> 8));
    U8(static_cast<std::uint8_t>(value & 0xFF));
  }

  void Append(std::span<const std::uint8_t> bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  }

  /// The bytes of `text` as they are, without length or end mark.
  void Text(std::string_view text) {
    Append({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  }

  const Bytes& Data() const { return bytes_; }

  /// Hands over what was written and leaves the writer empty.
  Bytes Take() { return std::exchange(bytes_, {}); }

 private:
  Bytes bytes_;
};

}  // namespace netro
