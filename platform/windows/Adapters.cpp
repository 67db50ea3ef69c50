#include "platform/windows/Adapters.h"

namespace netro {

// The list may grow between the two calls.
Adapters::Adapters() {
  constexpr ULONG kFlags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST;
  ULONG size = 16'384;
  error_ = ERROR_BUFFER_OVERFLOW;
  for (int tries = 0; tries < 5 && error_ == ERROR_BUFFER_OVERFLOW; ++tries) {
    room_.resize(size / sizeof room_[0] + 1);
    auto* const list = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(room_.data());
    error_ = GetAdaptersAddresses(AF_UNSPEC, kFlags, nullptr, list, &size);
  }
  if (error_ == ERROR_NO_DATA) {
    room_.clear();
    error_ = 0;
  }
}

}  // namespace netro
