// NetBIOS return codes that the library itself produces. Any thread.
#pragma once

#include <cstdint>

namespace netro {

enum NetBiosCode : std::int32_t {
  kNetBiosTimedOut = 0x05,
  kNetBiosIncomplete = 0x06,
  kNetBiosNoResources = 0x09,
  kNetBiosCancelled = 0x0B,
  kNetBiosNoCallName = 0x14,
  kNetBiosBusy = 0x21,
  kNetBiosNoAdapter = 0x23,
  kNetBiosSystemError = 0x40,
};

}  // namespace netro
