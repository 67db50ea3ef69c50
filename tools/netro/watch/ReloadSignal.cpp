// SIGHUP, which asks a service to read its settings again.

#include "watch/ReloadSignal.h"

namespace netro::tool {
namespace {

volatile std::sig_atomic_t g_asked = 0;

}  // namespace

ReloadSignal::ReloadSignal() {
  struct sigaction action {};
  action.sa_handler = [](int) { g_asked = 1; };
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGHUP, nullptr, &before_);
  // Under nohup it is meant not to be heard.
  if (before_.sa_handler != SIG_IGN) ::sigaction(SIGHUP, &action, nullptr);
}

ReloadSignal::~ReloadSignal() { ::sigaction(SIGHUP, &before_, nullptr); }

bool ReloadSignal::Take() {
  const bool asked = g_asked != 0;
  g_asked = 0;
  return asked;
}

}  // namespace netro::tool
