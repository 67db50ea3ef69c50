// The MD5 message digest (RFC 1321). Thread: any.

#include "support/Md5.h"

namespace netro {
namespace {

// RFC 1321, section 3.4: the integer part of 2^32 * abs(sin(i + 1)).
constexpr std::array<std::uint32_t, 64> kSines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// How far each step rotates: four values a round, over and over.
constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

std::uint32_t LittleEndian(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

/// The auxiliary function of `round`: F, G, H, I in the RFC.
std::uint32_t Mix(std::size_t round, std::uint32_t x, std::uint32_t y, std::uint32_t z) {
  switch (round) {
    case 0:
      return (x & y) | (~x & z);
    case 1:
      return (x & z) | (y & ~z);
    case 2:
      return x ^ y ^ z;
    default:
      return y ^ (x | ~z);
  }
}

/// Which of the block's sixteen words `step` takes.
std::size_t WordOf(std::size_t round, std::size_t step) {
  constexpr std::size_t kFactor[4] = {1, 5, 3, 7};
  constexpr std::size_t kOffset[4] = {0, 1, 5, 0};
  return (kFactor[round] * step + kOffset[round]) % 16;
}

}  // namespace

void Md5Steps::AddBlock(const DigestBlock& block, std::array<std::uint32_t, 4>& state) {
  auto [a, b, c, d] = state;
  for (std::size_t step = 0; step < 64; ++step) {
    const std::size_t round = step / 16;
    const std::uint32_t word = LittleEndian(&block[4 * WordOf(round, step)]);
    const std::uint32_t sum = a + Mix(round, b, c, d) + word + kSines[step];
    a = d;
    d = c;
    c = b;
    b += std::rotl(sum, kShifts[round][step % 4]);
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

}  // namespace netro
