// What is the same on every system: which names and sets may be used.
#include "platform/CodePage.h"

#include <algorithm>
#include <utility>

#include "platform/Conversion.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

constexpr std::size_t kLongestName = 40;

/// Lines of ASCII are the same bytes in every set that mail may use.
bool KeepsAscii(std::string_view charSet) {
  constexpr std::string_view kSample = "A=\r\n";
  return IsCharSetName(charSet) && FromUtf8BySystem(kSample, charSet) == kSample;
}

}  // namespace

bool IsUtf8Name(std::string_view name) {
  return EqualsIgnoreCase(name, kUtf8) || EqualsIgnoreCase(name, "utf8");
}

bool IsCharSetName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestName && std::ranges::all_of(name, [](char c) {
    return IsAlphanumeric(c) || std::string_view("-_.:+").find(c) != std::string_view::npos;
  });
}

std::optional<std::string> ConvertFromUtf8(std::string_view utf8, std::string_view charSet) {
  if (IsUtf8Name(charSet)) {
    return IsUtf8(utf8) ? std::optional<std::string>(utf8) : std::nullopt;
  }
  return KeepsAscii(charSet) ? FromUtf8BySystem(utf8, charSet) : std::nullopt;
}

std::optional<std::string> ConvertToUtf8(std::string_view text, std::string_view charSet) {
  if (IsUtf8Name(charSet)) return ConvertFromUtf8(text, charSet);
  return KeepsAscii(charSet) ? ToUtf8BySystem(text, charSet) : std::nullopt;
}

std::string ToUtf8(std::string text, std::string_view charSet) {
  if (IsUtf8(text)) return text;
  auto converted = ConvertToUtf8(text, charSet);
  return converted ? *std::move(converted) : Latin1ToUtf8(text);
}

std::string LocaleCharSet() {
  std::string name = SystemCharSet();
  return KeepsAscii(name) ? name : std::string(kUtf8);
}

}  // namespace netro
