// Bytes made readable. Thread: any.

#include "terminal/Encoding.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace netro::tool {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

std::uint8_t ByteAt(std::string_view text, std::size_t at) {
  return static_cast<std::uint8_t>(text[at]);
}

/// The length that the first byte announces, and the range of the second byte, which rules out
/// overlong forms, surrogates and values beyond U+10FFFF (RFC 3629, section 4).
struct Utf8Form {
  std::uint8_t first, last;
  std::size_t length;
  std::uint8_t secondFrom, secondTo;
};

constexpr Utf8Form kUtf8Forms[] = {
    {0x00, 0x7F, 1, 0, 0},       {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

bool Fits(std::string_view text, const Utf8Form& form) {
  if (text.size() < form.length) return false;
  for (std::size_t i = 1; i < form.length; ++i) {
    const std::uint8_t from = i == 1 ? form.secondFrom : std::uint8_t{0x80};
    const std::uint8_t to = i == 1 ? form.secondTo : std::uint8_t{0xBF};
    if (ByteAt(text, i) < from || ByteAt(text, i) > to) return false;
  }
  return true;
}

/// Controls are 0x00-0x1F, 0x7F and, as UTF-8, U+0080-U+009F; terminals obey the latter too.
bool BeginsWithControl(std::string_view text) {
  const std::uint8_t first = ByteAt(text, 0);
  return first < 0x20 || first == 0x7F ||
         (first == 0xC2 && text.size() > 1 && ByteAt(text, 1) < 0xA0);
}

bool IsHarmlessControl(char c) { return c == '\t' || c == '\n' || c == '\r'; }

void AppendEscaped(std::string& text, std::uint8_t byte) {
  text += "\\x";
  text += kHexDigits[byte >> 4];
  text += kHexDigits[byte & 15];
}

}  // namespace

std::size_t Utf8Length(std::string_view text) {
  for (const Utf8Form& form : kUtf8Forms) {
    if (!text.empty() && ByteAt(text, 0) >= form.first && ByteAt(text, 0) <= form.last) {
      return Fits(text, form) ? form.length : 0;
    }
  }
  return 0;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = Utf8Length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

bool IsPlainText(std::string_view bytes) {
  if (!IsUtf8(bytes)) return false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (BeginsWithControl(bytes.substr(i)) && !IsHarmlessControl(bytes[i])) return false;
  }
  return true;
}

std::string Printable(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    std::size_t length = Utf8Length(bytes);
    const char first = bytes[0];
    if (first == '\t' || first == '\n') {
      text += first;
    } else if (bytes.starts_with("\r\n")) {
      text += '\n';
      length = 2;
    } else if (length == 0 || BeginsWithControl(bytes)) {
      length = length == 0 ? 1 : length;
      for (std::size_t i = 0; i < length; ++i) AppendEscaped(text, ByteAt(bytes, i));
    } else {
      text += bytes.substr(0, length);
    }
    bytes.remove_prefix(length);
  }
  return text;
}

std::string OnOneLine(std::string_view bytes) {
  constexpr std::size_t kLongest = 500;
  std::string line = Printable(bytes.substr(0, kLongest));
  std::ranges::replace(line, '\n', ' ');
  line.erase(line.find_last_not_of(' ') + 1);
  return line + (bytes.size() > kLongest ? "..." : "");
}

std::string Hex(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<std::uint8_t>(c);
    text += text.empty() ? "" : " ";
    text += kHexDigits[byte >> 4];
    text += kHexDigits[byte & 15];
  }
  return text;
}

std::string Base64(std::string_view bytes) {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      group = group << 8 | (i + k < bytes.size() ? ByteAt(bytes, i + k) : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      const bool padding = i + k > bytes.size();
      text += padding ? '=' : kAlphabet[group >> (18 - 6 * k) & 63];
    }
  }
  return text;
}

std::string PercentDecode(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint8_t byte = 0;
    const std::string_view digits = text.substr(i + 1, 2);
    const char* end = digits.data() + digits.size();
    if (text[i] == '%' && digits.size() == 2 &&
        std::from_chars(digits.data(), end, byte, 16).ptr == end) {
      decoded += static_cast<char>(byte);
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
}

}  // namespace netro::tool
