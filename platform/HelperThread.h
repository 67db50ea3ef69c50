// A thread for one system call that blocks and cannot be stopped. It ends by itself; nobody waits
// for it. It takes no signals: those are for the program's own threads.
#pragma once

#include <functional>

namespace netro {

/// False when the system gives no thread; then the work is not done.
bool RunOnHelperThread(std::function<void()> work);

}  // namespace netro
