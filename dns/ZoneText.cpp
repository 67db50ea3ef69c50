#include "dns/ZoneText.h"

#include <cstdint>

#include "platform/Address.h"
#include "support/Text.h"

namespace netro {
namespace {

void AppendByNumber(std::string& text, std::uint8_t byte) {
  text += '\\';
  for (const int unit : {100, 10, 1}) text += static_cast<char>('0' + byte / unit % 10);
}

/// `first` is the first character that stands for itself; those in `special` get a backslash.
std::string EscapedText(std::string_view bytes, char first, std::string_view special) {
  std::string text;
  for (const char c : bytes) {
    if (c < first || c > '~') {
      AppendByNumber(text, static_cast<std::uint8_t>(c));
    } else {
      text += special.find(c) == special.npos ? "" : "\\";
      text += c;
    }
  }
  return text;
}

}  // namespace

std::string ZoneString(std::string_view text) { return '"' + EscapedText(text, ' ', "\"\\") + '"'; }

std::string ZoneWord(std::string_view text) { return EscapedText(text, '!', {}); }

std::string ZoneBytes(std::string_view bytes) {
  return "\\# " + std::to_string(bytes.size()) + (bytes.empty() ? "" : " ") + HexDigits(bytes);
}

std::string HexDigits(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char c : bytes) AppendHex(text, c);
  return text;
}

std::string ZoneIPv6(const IpAddress& address) {
  return (address.IsIPv4() ? "::ffff:" : "") + FormatAddress(address);
}

}  // namespace netro
