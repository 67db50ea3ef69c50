// Bytes as lines of Base64 (RFC 2045, section 6.8), made while they are read. Thread: any, one at a
// time.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/ByteSource.h"
#include "support/Base64.h"

namespace netro {

class Base64Source final : public ByteSource {
 public:
  /// `bytes` has a length.
  explicit Base64Source(std::unique_ptr<ByteSource> bytes) : bytes_(std::move(bytes)) {}

  std::optional<std::uint64_t> Length() const override;
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) override;
  bool Rewind() override;
  std::string ErrorText() const override { return bytes_->ErrorText(); }

 private:
  std::int32_t Encode(char* to, std::size_t lines, std::size_t& got);

  std::unique_ptr<ByteSource> bytes_;
  std::unique_ptr<std::uint8_t[]> read_;  // whole lines, while there are bytes
  std::array<char, kBase64LineSize> line_;
  std::string_view rest_;  // of the line, for which there was no room
};

}  // namespace netro
