// The system's list of network adapters.
#pragma once

#include <vector>

#include "platform/windows/System.h"

namespace netro {

class Adapters {
 public:
  /// Asks the system, once.
  Adapters();
  const IP_ADAPTER_ADDRESSES* First() const {
    return error_ == 0 && !room_.empty()
               ? reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(room_.data())
               : nullptr;
  }
  /// The system's number of why there is no list; 0 also where there are no adapters.
  DWORD Error() const { return error_; }

 private:
  std::vector<std::uint64_t> room_;  // aligned as the list wants it
  DWORD error_ = 0;
};

}  // namespace netro
