// Ctrl-C that ends a running query in good order.

#include "terminal/Interrupt.h"

#include <csignal>
#include <cstddef>
#include <iterator>

namespace netro::tool {
namespace {

// Written only while the signals have their usual effect.
void* g_target = nullptr;
void (*g_stop)(void*) = nullptr;

constexpr int kSignals[] = {SIGINT, SIGTERM};
struct sigaction g_before[std::size(kSignals)];

void OnSignal(int) {
  for (const int signal : kSignals) std::signal(signal, SIG_DFL);
  g_stop(g_target);
}

}  // namespace

InterruptGuard::InterruptGuard(void* target, void (*stop)(void*)) {
  g_target = target;
  g_stop = stop;
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
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    ::sigaction(kSignals[i], &g_before[i], nullptr);
  }
}

}  // namespace netro::tool
