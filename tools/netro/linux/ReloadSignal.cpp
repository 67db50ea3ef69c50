// SIGHUP, which asks a service to read its settings again.

#include "watch/ReloadSignal.h"

#include <csignal>

namespace netro::tool {
namespace {

volatile std::sig_atomic_t g_asked = 0;
struct sigaction g_before {};

}  // namespace

ReloadSignal::ReloadSignal() {
  struct sigaction action {};
  action.sa_handler = [](int) { g_asked = 1; };
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGHUP, nullptr, &g_before);
  // Under nohup it is meant not to be heard.
  if (g_before.sa_handler != SIG_IGN) ::sigaction(SIGHUP, &action, nullptr);
}

ReloadSignal::~ReloadSignal() { ::sigaction(SIGHUP, &g_before, nullptr); }

bool ReloadSignal::Take() {
  const bool asked = g_asked != 0;
  g_asked = 0;
  return asked;
}

}  // namespace netro::tool
