#include "platform/Process.h"

#include "platform/windows/System.h"

namespace netro {

int ProcessId() {
  static const int process = static_cast<int>(GetCurrentProcessId());
  return process;
}

}  // namespace netro
