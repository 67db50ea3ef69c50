// The six bytes of a MAC address, and their text. Thread: any.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

using HardwareAddress = std::array<std::uint8_t, 6>;

/// Two upper-case hexadecimal digits a byte, with `divider` between the bytes:
///
///     FormatHardwareAddress({0x00, 0x0A, 0x95, 0x9D, 0x68, 0x16}, "-")  // "00-0A-95-9D-68-16"
std::string FormatHardwareAddress(const HardwareAddress& address, std::string_view divider);

}  // namespace netro
