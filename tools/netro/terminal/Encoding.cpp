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

}  // namespace

std::string OnOneLine(std::string_view bytes) {
  constexpr std::size_t kLongest = 500;
  std::string line = ShownText(bytes.substr(0, kLongest));
  std::ranges::replace(line, '\n', ' ');
  line.erase(line.find_last_not_of(' ') + 1);
  return line + (bytes.size() > kLongest ? "..." : "");
}

std::string Hex(std::string_view bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    text += (i == 0 ? "" : " ") + HexDigits(bytes.substr(i, 1));
  }
  return text;
}

std::string HexDigits(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<std::uint8_t>(c);
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
