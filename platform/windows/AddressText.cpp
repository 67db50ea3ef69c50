#include "platform/AddressText.h"

#include <cstring>

#include "platform/windows/System.h"

namespace netro {

std::optional<std::int32_t> ParseRareDotted(const std::string& text) {
  const unsigned long bits = inet_addr(text.c_str());
  // The value of a failure is also that of the last address, which is the text of nothing else.
  if (bits == INADDR_NONE && text != "255.255.255.255") return std::nullopt;
  return static_cast<std::int32_t>(bits);
}

std::optional<std::array<std::uint8_t, 16>> ParseIPv6Digits(const std::string& text) {
  std::array<std::uint8_t, 16> bytes{};
  if (inet_pton(AF_INET6, text.c_str(), bytes.data()) != 1) return std::nullopt;
  return bytes;
}

std::string FormatIPv6Digits(std::span<const std::uint8_t, 16> bytes) {
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(AF_INET6, bytes.data(), text, sizeof text);
  return text;
}

std::uint32_t InterfaceNumber(const std::string& name) { return if_nametoindex(name.c_str()); }

// The names of this system ("ethernet_32769") are no more telling than numbers, which its own
// programs show.
std::string InterfaceName(std::uint32_t /*number*/) { return {}; }

}  // namespace netro
