#include "support/HardwareAddress.h"

namespace netro {

std::string FormatHardwareAddress(const HardwareAddress& address, std::string_view divider) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = 0; i < address.size(); ++i) {
    if (i > 0) text += divider;
    text += kDigits[address[i] >> 4];
    text += kDigits[address[i] & 0xF];
  }
  return text;
}

}  // namespace netro
