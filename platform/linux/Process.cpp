#include "platform/Process.h"

#include <unistd.h>

namespace netro {

int ProcessId() { return getpid(); }

}  // namespace netro
