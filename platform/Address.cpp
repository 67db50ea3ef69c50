#include "platform/Address.h"

#include <bit>
#include <charconv>
#include <cstring>
#include <string_view>

#include "platform/AddressText.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::uint8_t kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

// Four decimal numbers without leading zeros, as nearly every text has them: the system's parser
// takes ten times as long.
std::optional<std::int32_t> ParseUsual(std::string_view text) {
  std::array<std::uint8_t, 4> octets{};
  std::size_t dots = 0;
  int octet = -1;  // none of its digits has come
  for (const char c : text) {
    if (c >= '0' && c <= '9' && octet != 0 && octet < 256) {
      octet = std::max(octet, 0) * 10 + (c - '0');
    } else if (c == '.' && octet >= 0 && octet < 256 && dots < 3) {
      octets[dots++] = static_cast<std::uint8_t>(octet);
      octet = -1;
    } else {
      return std::nullopt;
    }
  }
  if (dots != 3 || octet < 0 || octet > 255) return std::nullopt;
  octets[dots] = static_cast<std::uint8_t>(octet);
  return std::bit_cast<std::int32_t>(octets);
}

// A number of an interface need not be one of today's.
std::optional<std::uint32_t> ParseZone(const std::string& text) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) number = InterfaceNumber(text);
  return number != 0 ? std::optional(number) : std::nullopt;
}

std::optional<IpAddress> ParseIPv6(const std::string& text) {
  if (text.find(':') == std::string::npos) return std::nullopt;  // names are asked about as well
  const std::size_t percent = text.find('%');
  if (text.find('\0') != std::string::npos) return std::nullopt;
  const auto bytes = ParseIPv6Digits(text.substr(0, percent));
  if (!bytes) return std::nullopt;
  if (percent == std::string::npos) return IpAddress::V6(*bytes);
  const auto zone = ParseZone(text.substr(percent + 1));
  return zone ? std::optional(IpAddress::V6(*bytes, *zone)) : std::nullopt;
}

bool ParsePort(std::string_view text, std::int32_t& port) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() && port >= 1 && port <= 65535;
}

}  // namespace

IpAddress IpAddress::V4(std::int32_t bits) {
  IpAddress made;
  made.family_ = AddressFamily::IPv4;
  std::memcpy(made.bytes_.data(), &bits, sizeof bits);
  return made;
}

IpAddress IpAddress::V6(std::span<const std::uint8_t, 16> bytes, std::uint32_t scope) {
  IpAddress made;
  if (std::equal(std::begin(kMapped), std::end(kMapped), bytes.begin())) {
    made.family_ = AddressFamily::IPv4;
    std::copy(bytes.begin() + sizeof kMapped, bytes.end(), made.bytes_.begin());
    return made;
  }
  made.family_ = AddressFamily::IPv6;
  std::ranges::copy(bytes, made.bytes_.begin());
  if (made.IsLinkLocal()) made.scope_ = scope;
  return made;
}

std::int32_t IpAddress::Bits() const {
  std::int32_t bits = -1;
  if (IsIPv4()) std::memcpy(&bits, bytes_.data(), sizeof bits);
  return bits;
}

bool IpAddress::IsUnspecified() const {
  return !IsNone() && std::ranges::all_of(Bytes(), [](std::uint8_t byte) { return byte == 0; });
}

bool IpAddress::IsLoopback() const {
  if (IsIPv4()) return bytes_[0] == 127;
  return IsIPv6() && bytes_[15] == 1 &&
         std::ranges::all_of(Bytes().first(15), [](std::uint8_t byte) { return byte == 0; });
}

// Multicast to the link has a zone as well.
bool IpAddress::IsLinkLocal() const {
  if (!IsIPv6()) return false;
  return (bytes_[0] == 0xFE && (bytes_[1] & 0xC0) == 0x80) ||
         (bytes_[0] == 0xFF && (bytes_[1] & 0x0F) == 2);
}

std::optional<std::int32_t> ParseDotted(const std::string& text) {
  if (const auto usual = ParseUsual(text)) return usual;
  // The system's parser stops at a blank; a text with one is no address.
  if (text.empty() || text.find_first_not_of("0123456789abcdefABCDEFxX.") != std::string::npos) {
    return std::nullopt;
  }
  return ParseRareDotted(text);
}

// The system's function takes ten times as long; every reply's address comes here.
std::string FormatDotted(std::int32_t bits) {
  char text[sizeof "255.255.255.255"];
  char* end = text;
  for (const std::uint8_t octet : std::bit_cast<std::array<std::uint8_t, 4>>(bits)) {
    if (end != text) *end++ = '.';
    end = std::to_chars(end, std::end(text), octet).ptr;
  }
  return {text, end};
}

std::optional<IpAddress> ParseAddress(const std::string& text) {
  if (const auto bits = ParseDotted(text)) return IpAddress::V4(*bits);
  return ParseIPv6(text);
}

std::string FormatAddress(const IpAddress& address) {
  if (address.IsIPv4()) return FormatDotted(address.Bits());
  if (address.IsNone()) return {};
  const std::string text = FormatIPv6Digits(address.Bytes().first<16>());
  if (address.Scope() == 0) return text;
  const std::string name = InterfaceName(address.Scope());
  return text + '%' + (name.empty() ? std::to_string(address.Scope()) : name);
}

std::string FormatEndpoint(const std::string& host, std::int32_t port) {
  const bool v6 = host.find(':') != std::string::npos;
  return (v6 ? '[' + host + ']' : host) + ':' + std::to_string(port);
}

bool SplitEndpoint(const std::string& text, std::string& host, std::int32_t& port) {
  if (HasControl(text)) return false;
  const std::string all = Trim(text);
  std::string_view rest;
  if (all.starts_with('[')) {
    const std::size_t end = all.find(']');
    if (end == std::string::npos || !ParseIPv6(host = all.substr(1, end - 1))) return false;
    rest = std::string_view(all).substr(end + 1);
  } else if (ParseIPv6(all)) {
    host = all;
  } else {
    const std::size_t colon = all.find(':');
    host = Trim(all.substr(0, colon));
    if (colon != std::string::npos) rest = std::string_view(all).substr(colon);
  }
  if (host.empty()) return false;
  return rest.empty() || (rest.front() == ':' && ParsePort(Trim(rest.substr(1)), port));
}

}  // namespace netro
