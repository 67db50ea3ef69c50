#include "support/StrangeText.h"

#include <netro/ShownText.h>

#include <cstdint>
#include <cstring>

#include "support/Utf8.h"

namespace netro {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

std::uint8_t ByteAt(std::string_view text, std::size_t at) {
  return static_cast<std::uint8_t>(text[at]);
}

/// A character of two or three bytes.
unsigned CharacterAt(std::string_view text, std::size_t at, std::size_t length) {
  const unsigned first = ByteAt(text, at);
  const unsigned second = ByteAt(text, at + 1) & 0x3FU;
  if (length == 2) return (first & 0x1F) << 6 | second;
  return (first & 0x0F) << 12 | second << 6 | (ByteAt(text, at + 2) & 0x3FU);
}

/// Marks of direction (Unicode's Bidi_Control) and separators of lines.
bool MisleadsReaders(unsigned character) {
  return character == 0x061C || character == 0x200E || character == 0x200F ||
         (character >= 0x2028 && character <= 0x202E) ||
         (character >= 0x2066 && character <= 0x2069);
}

bool IsPrintable(std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F; }

/// True when all eight bytes are printable ASCII: none has its high bit, is below 0x20, or is 0x7F.
bool ArePrintable(std::uint64_t eight) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  const std::uint64_t tooLow = eight - kOnes * 0x20;
  const std::uint64_t tooHigh = eight + kOnes;
  return ((eight | tooLow | tooHigh) & kOnes * 0x80) == 0;
}

}  // namespace

std::size_t EndOfPrintable(std::string_view text, std::size_t at) {
  std::uint64_t eight = 0;
  for (; text.size() - at >= sizeof eight; at += sizeof eight) {
    std::memcpy(&eight, text.data() + at, sizeof eight);
    if (!ArePrintable(eight)) break;
  }
  while (at < text.size() && IsPrintable(ByteAt(text, at))) ++at;
  return at;
}

std::size_t StrangeLength(std::string_view text, std::size_t at) {
  const std::size_t length = Utf8Length(text, at);
  if (length == 0) return 1;
  if (length == 1) return IsPrintable(ByteAt(text, at)) ? 0 : 1;
  if (length == 4) return 0;
  const unsigned character = CharacterAt(text, at, length);
  return character < 0xA0 || MisleadsReaders(character) ? length : 0;
}

void AppendEscaped(std::string& out, std::string_view strange) {
  const unsigned character = strange.size() < 2 ? 0 : CharacterAt(strange, 0, strange.size());
  if (character >= 0xA0) {
    out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) out += kHexDigits[character >> shift & 15];
    return;
  }
  for (const char c : strange) {
    const auto byte = static_cast<std::uint8_t>(c);
    ((out += "\\x") += kHexDigits[byte >> 4]) += kHexDigits[byte & 15];
  }
}

std::string ShownText(std::string_view text) {
  std::string shown;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = EndOfPrintable(text, at);
    shown.append(text, at, end - at);
    at = end;
    if (at == text.size()) break;
    if (text.substr(at, 2) == "\r\n") ++at;
    const std::size_t strange = StrangeLength(text, at);
    const std::size_t length = strange != 0 ? strange : Utf8Length(text, at);
    if (strange == 0 || text[at] == '\t' || text[at] == '\n') {
      shown.append(text, at, length);
    } else {
      AppendEscaped(shown, text.substr(at, strange));
    }
    at += length;
  }
  return shown;
}

bool IsHarmlessText(std::string_view text) {
  for (std::size_t at = 0; (at = EndOfPrintable(text, at)) < text.size();) {
    const bool isSpace = text[at] == '\t' || text[at] == '\n' || text[at] == '\r';
    if (!isSpace && StrangeLength(text, at) != 0) return false;
    at += Utf8Length(text, at);
  }
  return true;
}

}  // namespace netro
