// Base64 (RFC 4648, section 4). Thread: any.

#include "support/Base64.h"

#include <cstddef>
#include <cstdint>

namespace netro {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kWhitespace = " \t\r\n";

}  // namespace

std::string Base64Encode(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  std::uint32_t bits = 0;  // the low `count` bits are not written yet
  int count = 0;
  for (const char byte : bytes) {
    bits = bits << 8 | static_cast<std::uint8_t>(byte);
    for (count += 8; count >= 6; count -= 6) {
      text += kAlphabet[bits >> (count - 6) & 63];
    }
  }
  if (count > 0) {
    text += kAlphabet[bits << (6 - count) & 63];
  }
  text.append((4 - text.size() % 4) % 4, '=');
  return text;
}

std::optional<std::string> Base64Decode(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;  // holds `count` bits that fill no byte yet
  int count = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    if (kWhitespace.find(c) != kWhitespace.npos) {
      continue;
    }
    if (c == '=') {
      ++padding;
      continue;
    }
    const std::size_t value = kAlphabet.find(c);
    if (value == kAlphabet.npos || padding > 0) {
      return std::nullopt;
    }
    ++digits;
    bits = bits << 6 | static_cast<std::uint32_t>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes += static_cast<char>(bits >> count);
      bits &= (1U << count) - 1;
    }
  }
  if (padding > 2 || (digits + padding) % 4 != 0 || bits != 0) {
    return std::nullopt;
  }
  return bytes;
}

}  // namespace netro
