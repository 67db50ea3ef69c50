// Lists the hardware addresses of this computer's network adapters: mac_addresses
#include <netro/NetBIOSCls.h>

#include <iostream>

int main() {
  netro::NetBIOSCls adapters;
  std::int32_t error = 0;
  for (std::int16_t i = 0; adapters.GetMacAddress(i, "", ":", error); ++i) {
    std::cout << adapters.MacAddress() << '\n';
  }
  const std::int32_t noSuchAdapter = 0x23;  // behind the last one
  if (error == noSuchAdapter) return 0;
  std::cout << adapters.GetErrorText(error) << '\n';
  return 1;
}
