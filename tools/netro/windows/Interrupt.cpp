// Ctrl-C, which the system tells on a thread of its own; closing the window counts as SIGTERM.
#include "terminal/Interrupt.h"

#include <windows.h>

#include <csignal>
#include <mutex>

#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

std::mutex g_mutex;  // guards everything here
const InterruptGuard* g_innermost = nullptr;
int g_heard = 0;
int g_left = 0;  // signals that do not end the program at once

}  // namespace

void InterruptGuard::OnSignal(int number) {
  const std::lock_guard lock(g_mutex);
  g_heard = number;
  --g_left;
  GiveUpStuckOutput();
  for (const InterruptGuard* guard = g_innermost; guard != nullptr; guard = guard->outer_) {
    guard->stop_(guard->target_);
  }
}

InterruptGuard::InterruptGuard(void* target, void (*stop)(void*), int patience)
    : target_(target), stop_(stop), outer_(g_innermost) {
  static const bool listens = SetConsoleCtrlHandler(
                                  [](DWORD event) -> BOOL {
                                    const bool ends = [] {
                                      const std::lock_guard lock(g_mutex);
                                      return g_innermost == nullptr || g_left <= 0;
                                    }();
                                    if (ends) return FALSE;
                                    OnSignal(event == CTRL_C_EVENT ? SIGINT : SIGTERM);
                                    return TRUE;
                                  },
                                  TRUE) != 0;
  const std::lock_guard lock(g_mutex);
  g_innermost = listens ? this : nullptr;
  if (outer_ == nullptr) g_left = patience;
}

InterruptGuard::~InterruptGuard() {
  const std::lock_guard lock(g_mutex);
  g_innermost = outer_;
}

void AcceptTermination() {
  const std::lock_guard lock(g_mutex);
  if (g_heard == SIGTERM) g_heard = 0;
}

void DieIfInterrupted() {
  const std::lock_guard lock(g_mutex);
  if (g_heard != 0) ExitProcess(STATUS_CONTROL_C_EXIT);
}

}  // namespace netro::tool
