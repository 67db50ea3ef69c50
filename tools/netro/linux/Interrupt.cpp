// Ctrl-C that ends a running query in good order.

#include "terminal/Interrupt.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <iterator>

#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};
struct sigaction g_before[std::size(kSignals)];

// The guards that are there, the innermost first. The handler runs on the thread that makes them.
std::atomic<const InterruptGuard*> g_innermost = nullptr;
volatile std::sig_atomic_t g_heard = 0;
volatile std::sig_atomic_t g_left = 0;  // signals that do not end the program at once

}  // namespace

void InterruptGuard::OnSignal(int number) {
  g_heard = number;
  g_left = g_left - 1;
  if (g_left <= 0) {
    for (const int signal : kSignals) std::signal(signal, SIG_DFL);
  }
  const int error = errno;
  GiveUpStuckOutput();
  for (const InterruptGuard* guard = g_innermost; guard != nullptr; guard = guard->outer_) {
    guard->stop_(guard->target_);
  }
  errno = error;
}

InterruptGuard::InterruptGuard(void* target, void (*stop)(void*), int patience)
    : target_(target), stop_(stop), outer_(g_innermost) {
  g_innermost = this;
  if (outer_ != nullptr) return;
  g_left = patience;
  struct sigaction action {};
  action.sa_handler = OnSignal;
  action.sa_flags = SA_RESTART;
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    ::sigaction(kSignals[i], nullptr, &g_before[i]);
    // A job that a shell put into the background is meant not to hear Ctrl-C.
    if (g_before[i].sa_handler != SIG_IGN) ::sigaction(kSignals[i], &action, nullptr);
  }
}

InterruptGuard::~InterruptGuard() {
  if (outer_ == nullptr) {
    for (std::size_t i = 0; i < std::size(kSignals); ++i) {
      ::sigaction(kSignals[i], &g_before[i], nullptr);
    }
  }
  g_innermost = outer_;
}

void AcceptTermination() {
  if (g_heard != SIGTERM) return;
  // One that comes again, also after the guard, is the same.
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    if (kSignals[i] == SIGTERM) g_before[i].sa_handler = SIG_IGN;
  }
  std::signal(SIGTERM, SIG_IGN);
  g_heard = 0;
}

void DieIfInterrupted() {
  if (g_heard == 0) return;
  std::signal(g_heard, SIG_DFL);
  std::raise(g_heard);
}

}  // namespace netro::tool
