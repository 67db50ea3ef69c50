// What only the system knows about the texts of addresses: the rare forms of IPv4, IPv6, and the
// names of interfaces. Any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace netro {

/// As inet_aton reads it; the text holds only what may stand in a number, and dots.
std::optional<std::int32_t> ParseRareDotted(const std::string& text);

/// As inet_pton and inet_ntop read and write it, without a zone.
std::optional<std::array<std::uint8_t, 16>> ParseIPv6Digits(const std::string& text);
std::string FormatIPv6Digits(std::span<const std::uint8_t, 16> bytes);

/// The system's number of an interface, 0 when there is none, and its name; empty when there is
/// none.
std::uint32_t InterfaceNumber(const std::string& name);
std::string InterfaceName(std::uint32_t number);

}  // namespace netro
