// What the tests of bytes that are read piece by piece share.
#pragma once

#include "TestKit.h"
#include "platform/ByteSource.h"

namespace netro {

/// What the source gives in pieces of `size`; `error` is that of the first failure.
inline std::string ReadAll(ByteSource& source, std::size_t size, std::int32_t& error) {
  std::string body;
  std::vector<std::uint8_t> room(size);
  for (std::size_t got = 1; got > 0;) {
    error = source.Read(room, got);
    if (error != 0) return body;
    EXPECT_LE(got, size);
    body.append(room.begin(), room.begin() + static_cast<std::ptrdiff_t>(got));
  }
  std::size_t again = 1;
  EXPECT_EQ(source.Read(room, again), 0);
  EXPECT_EQ(again, 0u) << "the end stays";
  return body;
}

inline std::string ReadAll(ByteSource& source) {
  std::int32_t error = 0;
  const std::string body = ReadAll(source, 1000, error);
  EXPECT_EQ(error, 0) << source.ErrorText();
  return body;
}

/// Gives another source in pieces of at most `size`, cut at each multiple of it.
class InPieces final : public ByteSource {
 public:
  InPieces(std::string bytes, std::size_t size) : bytes_(std::move(bytes)), size_(size) {}

  std::optional<std::uint64_t> Length() const override { return bytes_.Length(); }
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) override {
    return bytes_.Read(room.first(std::min(room.size(), size_)), got);
  }
  bool Rewind() override { return bytes_.Rewind(); }

 private:
  MemorySource bytes_;
  std::size_t size_;
};

}  // namespace netro
