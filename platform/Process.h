// The process itself. Any thread.
#pragma once

namespace netro {

/// Changes in the child of a fork.
int ProcessId();

}  // namespace netro
