// UTF-8 (RFC 3629). Thread: any.

#include "support/Utf8.h"

#include <cstdint>
#include <cstring>

namespace netro {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

std::uint8_t ByteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<std::uint8_t>(text[at]) : 0;
}

bool IsWithin(std::uint8_t byte, int first, int last) { return byte >= first && byte <= last; }

/// The length that the first byte announces, when the second one agrees (RFC 3629, section 4).
std::size_t AnnouncedLength(std::uint8_t first, std::uint8_t second) {
  if (first < 0x80) return 1;
  if (IsWithin(first, 0xC2, 0xDF)) return IsWithin(second, 0x80, 0xBF) ? 2 : 0;
  if (IsWithin(first, 0xE0, 0xEF)) {
    return IsWithin(second, first == 0xE0 ? 0xA0 : 0x80, first == 0xED ? 0x9F : 0xBF) ? 3 : 0;
  }
  if (IsWithin(first, 0xF0, 0xF4)) {
    return IsWithin(second, first == 0xF0 ? 0x90 : 0x80, first == 0xF4 ? 0x8F : 0xBF) ? 4 : 0;
  }
  return 0;
}

/// The end of the run of ASCII, eight bytes at a time where there are so many.
std::size_t EndOfAscii(std::string_view text, std::size_t at) {
  std::uint64_t eight = 0;
  for (; text.size() - at >= sizeof eight; at += sizeof eight) {
    std::memcpy(&eight, text.data() + at, sizeof eight);
    if ((eight & 0x8080808080808080) != 0) break;
  }
  while (at < text.size() && static_cast<std::uint8_t>(text[at]) < 0x80) ++at;
  return at;
}

void AppendByte(std::string& out, char32_t value) { out += static_cast<char>(value); }

}  // namespace

std::size_t Utf8Length(std::string_view text, std::size_t at) {
  if (at >= text.size()) return 0;
  const std::size_t length = AnnouncedLength(ByteAt(text, at), ByteAt(text, at + 1));
  for (std::size_t i = 2; i < length; ++i) {
    if (!IsWithin(ByteAt(text, at + i), 0x80, 0xBF)) return 0;
  }
  return length;
}

bool IsUtf8(std::string_view text) {
  for (std::size_t at = 0; (at = EndOfAscii(text, at)) < text.size();) {
    const std::size_t length = Utf8Length(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

bool IsAscii(std::string_view text) { return EndOfAscii(text, 0) == text.size(); }

void AppendUtf8(std::string& out, char32_t character) {
  if ((character >= 0xD800 && character <= 0xDFFF) || character > 0x10FFFF) {
    character = kReplacement;
  }
  if (character < 0x80) {
    AppendByte(out, character);
    return;
  }
  if (character < 0x800) {
    AppendByte(out, 0xC0 | character >> 6);
  } else {
    if (character < 0x10000) {
      AppendByte(out, 0xE0 | character >> 12);
    } else {
      AppendByte(out, 0xF0 | character >> 18);
      AppendByte(out, 0x80 | (character >> 12 & 0x3F));
    }
    AppendByte(out, 0x80 | (character >> 6 & 0x3F));
  }
  AppendByte(out, 0x80 | (character & 0x3F));
}

std::string Latin1ToUtf8(std::string_view text) {
  std::string utf8;
  for (const char c : text) AppendUtf8(utf8, static_cast<std::uint8_t>(c));
  return utf8;
}

}  // namespace netro
