// Small text helpers, independent of the locale. Thread: any.

#include "support/Text.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace netro {
namespace {

char LowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsHostNameCharacter(char c) { return IsAlphanumeric(c) || c == '-' || c == '_'; }

}  // namespace

bool IsAlphanumeric(char c) {
  const char lower = LowerCase(c);
  return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9');
}

std::string ToLower(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), LowerCase);
  return lower;
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, {}, LowerCase, LowerCase);
}

bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix) {
  return EqualsIgnoreCase(text.substr(0, prefix.size()), prefix);
}

std::string_view Trimmed(std::string_view text) {
  const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
  while (!text.empty() && isBlank(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && isBlank(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

std::string Trim(std::string_view text) { return std::string(Trimmed(text)); }

std::vector<std::string> Split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  for (auto at = text.find(separator); at != text.npos; at = text.find(separator, begin)) {
    parts.emplace_back(text.substr(begin, at - begin));
    begin = at + 1;
  }
  parts.emplace_back(text.substr(begin));
  return parts;
}

void AppendHex(std::string& out, char byte) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const auto value = static_cast<std::uint8_t>(byte);
  out += {kDigits[value >> 4], kDigits[value & 15]};
}

bool HasControl(std::string_view text) {
  return std::ranges::any_of(text, [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

bool HasControlCharacter(std::string_view text) {
  return std::ranges::any_of(
      text, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

std::string CharFilter(std::string_view text, int lower, int upper) {
  std::string kept;
  std::ranges::copy_if(text, std::back_inserter(kept), [lower, upper](char c) {
    const int code = static_cast<std::uint8_t>(c);
    return code > lower && code <= upper;
  });
  return kept;
}

bool IsHostName(std::string_view text) {
  if (text.size() > 255) {
    return false;
  }
  std::size_t label = 0;
  for (const char c : text) {
    if (c == '.' ? label == 0 : !IsHostNameCharacter(c) || label == 63) {
      return false;
    }
    label = c == '.' ? 0 : label + 1;
  }
  return !text.empty();
}

// FNV-1a, 64 bits. Its low bits know only the low bits of the text, so the high ones are added.
std::size_t HashIgnoreCase(std::string_view text) {
  // Another seed in each run of a program: who chooses names must not choose which of them collide.
  static const std::uint64_t seed =
      static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) *
      0x9e3779b97f4a7c15;
  std::uint64_t hash = seed;
  for (const char c : text) {
    hash = (hash ^ static_cast<std::uint8_t>(LowerCase(c))) * 0x100000001b3;
  }
  return static_cast<std::size_t>(hash ^ hash >> 32);
}

}  // namespace netro
