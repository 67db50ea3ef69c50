#include "platform/AddressText.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>

namespace netro {

std::optional<std::int32_t> ParseRareDotted(const std::string& text) {
  in_addr address{};
  if (inet_aton(text.c_str(), &address) == 0) return std::nullopt;
  return static_cast<std::int32_t>(address.s_addr);
}

std::optional<std::array<std::uint8_t, 16>> ParseIPv6Digits(const std::string& text) {
  std::array<std::uint8_t, 16> bytes{};
  if (inet_pton(AF_INET6, text.c_str(), &bytes) != 1) return std::nullopt;
  return bytes;
}

std::string FormatIPv6Digits(std::span<const std::uint8_t, 16> bytes) {
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(AF_INET6, bytes.data(), text, sizeof text);
  return text;
}

std::uint32_t InterfaceNumber(const std::string& name) { return if_nametoindex(name.c_str()); }

std::string InterfaceName(std::uint32_t number) {
  char name[IF_NAMESIZE] = {};
  return if_indextoname(number, name) != nullptr ? name : "";
}

}  // namespace netro
