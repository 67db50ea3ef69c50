#include "mail/Base64Source.h"

#include <algorithm>

namespace netro {
namespace {

constexpr std::size_t kMostLines = 1024;  // 80 KB of Base64

}  // namespace

std::optional<std::uint64_t> Base64Source::Length() const {
  return Base64LinesSize(*bytes_->Length());
}

std::int32_t Base64Source::Read(std::span<std::uint8_t> room, std::size_t& got) {
  got = 0;
  if (rest_.empty()) {
    const std::size_t lines = std::min(room.size() / kBase64LineSize, kMostLines);
    if (lines > 0) return Encode(reinterpret_cast<char*>(room.data()), lines, got);
    std::size_t size = 0;
    if (const std::int32_t error = Encode(line_.data(), 1, size)) return error;
    rest_ = {line_.data(), size};
  }
  got = rest_.copy(reinterpret_cast<char*>(room.data()), room.size());
  rest_.remove_prefix(got);
  return 0;
}

// Lines are filled, but for the last one. At the end the memory goes: many sources may be held.
std::int32_t Base64Source::Encode(char* to, std::size_t lines, std::size_t& got) {
  if (!read_) read_.reset(new std::uint8_t[kMostLines * kBase64LineBytes]);
  const std::span wanted(read_.get(), lines * kBase64LineBytes);
  std::size_t used = 0;
  for (std::size_t more = 1; used < wanted.size() && more > 0; used += more) {
    if (const std::int32_t error = bytes_->Read(wanted.subspan(used), more)) return error;
  }
  const std::string_view bytes(reinterpret_cast<const char*>(read_.get()), used);
  got = static_cast<std::size_t>(EncodeBase64Lines(bytes, to) - to);
  if (used == 0) read_.reset();
  return 0;
}

bool Base64Source::Rewind() {
  rest_ = {};
  return bytes_->Rewind();
}

}  // namespace netro
