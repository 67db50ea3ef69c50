// MD5 (RFC 1321) for checking what the library computes; it shares nothing with the library.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

namespace netro {

inline std::string PlainMd5(std::string text) {
  constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
  const std::uint64_t bits = text.size() * 8;
  text += '\x80';
  while (text.size() % 64 != 56) text += '\0';
  for (int i = 0; i < 8; ++i) text += static_cast<char>(bits >> (8 * i));

  std::uint32_t state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  for (std::size_t block = 0; block < text.size(); block += 64) {
    std::uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (std::uint32_t i = 0; i < 64; ++i) {
      std::uint32_t f = 0, word = 0;
      switch (i / 16) {
        case 0:
          f = (b & c) | (~b & d);
          word = i;
          break;
        case 1:
          f = (d & b) | (~d & c);
          word = (5 * i + 1) % 16;
          break;
        case 2:
          f = b ^ c ^ d;
          word = (3 * i + 5) % 16;
          break;
        default:
          f = c ^ (b | ~d);
          word = 7 * i % 16;
          break;
      }
      std::uint32_t value = 0;
      for (std::uint32_t byte = 4; byte-- > 0;)
        value = value << 8 | static_cast<std::uint8_t>(text[block + 4 * word + byte]);
      const auto sine = static_cast<std::uint32_t>(std::fabs(std::sin(i + 1.0)) * 4294967296.0);
      const std::uint32_t sum = a + f + sine + value;
      a = d, d = c, c = b, b += std::rotl(sum, kShifts[i / 16][i % 4]);
    }
    state[0] += a, state[1] += b, state[2] += c, state[3] += d;
  }
  std::string hex;
  for (int i = 0; i < 16; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", state[i / 4] >> (8 * (i % 4)) & 0xFF);
    hex += digits;
  }
  return hex;
}

}  // namespace netro
