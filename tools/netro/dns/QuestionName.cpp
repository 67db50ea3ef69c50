#include "dns/QuestionName.h"

#include <arpa/inet.h>
#include <netro/RecordText.h>

#include <cstddef>
#include <cstdint>

namespace netro::tool {

std::optional<std::string> ReverseName(const std::string& address) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::uint8_t bytes[16];
  std::string name;
  if (::inet_pton(AF_INET, address.c_str(), bytes) == 1) {
    for (int i = 3; i >= 0; --i) name += std::to_string(bytes[i]) + ".";
    return name + "in-addr.arpa";
  }
  if (::inet_pton(AF_INET6, address.c_str(), bytes) != 1) return std::nullopt;
  for (int i = 15; i >= 0; --i) name += {kDigits[bytes[i] & 15], '.', kDigits[bytes[i] >> 4], '.'};
  return name + "ip6.arpa";
}

std::string_view QuestionNameBytes(std::string_view message) {
  constexpr std::size_t kHeaderSize = 12;
  constexpr std::uint8_t kLongestLabel = 63;
  for (std::size_t at = kHeaderSize; at < message.size();) {
    const auto size = static_cast<std::uint8_t>(message[at++]);
    if (size == 0) return message.substr(kHeaderSize, at - kHeaderSize);
    if (size > kLongestLabel) break;
    at += size;
  }
  return {};
}

std::string QuestionNameText(std::string_view message) {
  return RecordDataText(TYPE_PTR, QuestionNameBytes(message));
}

}  // namespace netro::tool
