// Names and strings as a zone file writes them.

#include "dns/ZoneText.h"

#include <cstdint>

namespace netro::tool {
namespace {

void AppendByNumber(std::string& text, std::uint8_t byte) {
  text += '\\';
  text += static_cast<char>('0' + byte / 100);
  text += static_cast<char>('0' + byte / 10 % 10);
  text += static_cast<char>('0' + byte % 10);
}

/// `first` is the first character that stands for itself; those in `special` get a backslash.
void AppendEscaped(std::string& text, std::string_view bytes, char first,
                   std::string_view special) {
  for (const char c : bytes) {
    const auto byte = static_cast<std::uint8_t>(c);
    if (byte < static_cast<std::uint8_t>(first) || byte >= 0x7f) {
      AppendByNumber(text, byte);
    } else {
      text += special.find(c) == special.npos ? "" : "\\";
      text += c;
    }
  }
}

constexpr std::string_view kSpecialInLabel = "\"()\\;@$.";

}  // namespace

std::string ZoneName(std::string_view name) { return std::string(name) + "."; }

std::string ZoneLabel(std::string_view label) {
  std::string text;
  AppendEscaped(text, label, '!', kSpecialInLabel);
  return text;
}

std::string ZoneString(std::string_view text) {
  std::string quoted = "\"";
  AppendEscaped(quoted, text, ' ', "\"\\");
  return quoted + "\"";
}

std::string ZoneBytes(std::string_view bytes) {
  return "\\# " + std::to_string(bytes.size()) + (bytes.empty() ? "" : " ") + HexDigits(bytes);
}

std::string HexDigits(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<std::uint8_t>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace netro::tool
