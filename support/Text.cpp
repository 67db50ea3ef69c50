// Small text helpers, independent of the locale. Thread: any.

#include "support/Text.h"

#include <algorithm>
#include <cstddef>

namespace netro {
namespace {

char LowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

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

std::string Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == text.npos) {
    return {};
  }
  return std::string(text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin));
}

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

bool HasControl(std::string_view text) {
  constexpr std::string_view kLineEnders("\r\n\0", 3);
  return text.find_first_of(kLineEnders) != text.npos;
}

}  // namespace netro
