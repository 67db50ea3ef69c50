// Base64 (RFC 4648, section 4). Thread: any.

#include "support/Base64.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace netro {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kLineEnd = "\r\n";

using Pair = std::array<char, 2>;

/// The two characters for each value of 12 bits: half the steps of one character at a time.
constexpr std::array<Pair, 4096> kPairs = [] {
  std::array<Pair, 4096> pairs{};
  for (std::size_t i = 0; i < pairs.size(); ++i) pairs[i] = {kAlphabet[i >> 6], kAlphabet[i & 63]};
  return pairs;
}();

enum : std::uint8_t { kWhitespace = 64, kPadding = 65, kForeign = 66 };

/// What each character means: its six bits or one of the above.
constexpr std::array<std::uint8_t, 256> kMeaning = [] {
  std::array<std::uint8_t, 256> meaning{};
  meaning.fill(kForeign);
  for (const char c : {' ', '\t', '\r', '\n'}) meaning[static_cast<std::uint8_t>(c)] = kWhitespace;
  meaning['='] = kPadding;
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    meaning[static_cast<std::uint8_t>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  }
  return meaning;
}();

constexpr std::size_t EncodedSize(std::size_t bytes) { return (bytes + 2) / 3 * 4; }

char* Put(char* to, std::uint64_t bits) {
  std::memcpy(to, kPairs[bits >> 12 & 4095].data(), 2);
  std::memcpy(to + 2, kPairs[bits & 4095].data(), 2);
  return to + 4;
}

std::uint64_t ThreeBytes(const std::uint8_t* from) {
  return std::uint64_t{from[0]} << 16 | std::uint64_t{from[1]} << 8 | from[2];
}

/// Written out, which compilers know for one step.
std::uint64_t EightBytes(const std::uint8_t* from) {
  return std::uint64_t{from[0]} << 56 | std::uint64_t{from[1]} << 48 |
         std::uint64_t{from[2]} << 40 | std::uint64_t{from[3]} << 32 |
         std::uint64_t{from[4]} << 24 | std::uint64_t{from[5]} << 16 | std::uint64_t{from[6]} << 8 |
         std::uint64_t{from[7]};
}

/// Writes EncodedSize characters and returns the place behind them.
char* Encode(std::string_view bytes, char* to) {
  const auto* from = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const auto* const end = from + bytes.size();
  for (; end - from >= 8; from += 6) {  // eight are read at once, and six of them used
    const std::uint64_t bits = EightBytes(from);
    to = Put(to, bits >> 40);
    to = Put(to, bits >> 16);
  }
  for (; end - from >= 3; from += 3) to = Put(to, ThreeBytes(from));
  if (from != end) {
    const std::array<std::uint8_t, 3> last = {from[0], end - from == 2 ? from[1] : std::uint8_t{0},
                                              0};
    to = Put(to, ThreeBytes(last.data()));
    std::fill(to - (3 - (end - from)), to, '=');
  }
  return to;
}

}  // namespace

std::string Base64Encode(std::string_view bytes) {
  std::string text(EncodedSize(bytes.size()), '\0');
  Encode(bytes, text.data());
  return text;
}

std::uint64_t Base64LinesSize(std::uint64_t bytes) {
  return (bytes + 2) / 3 * 4 + (bytes + kBase64LineBytes - 1) / kBase64LineBytes * kLineEnd.size();
}

char* EncodeBase64Lines(std::string_view bytes, char* to) {
  while (!bytes.empty()) {
    const std::string_view line = bytes.substr(0, kBase64LineBytes);
    to = Encode(line, to);
    to = std::ranges::copy(kLineEnd, to).out;
    bytes.remove_prefix(line.size());
  }
  return to;
}

std::optional<std::string> Base64Decode(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;  // holds `count` bits that fill no byte yet
  int count = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    const std::uint8_t value = kMeaning[static_cast<std::uint8_t>(c)];
    if (value == kWhitespace) {
      continue;
    }
    if (value == kPadding) {
      ++padding;
      continue;
    }
    if (value == kForeign || padding > 0) {
      return std::nullopt;
    }
    ++digits;
    bits = bits << 6 | value;
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
