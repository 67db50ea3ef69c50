#include "platform/Process.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace netro {
namespace {

std::atomic<int> g_process{0};

}  // namespace

// Asked for by every call of the library, so the system is asked once only.
int ProcessId() {
  int process = g_process.load(std::memory_order_relaxed);
  if (process != 0) return process;
  static const bool watched =
      pthread_atfork(nullptr, nullptr, [] { g_process.store(getpid()); }) == 0;
  process = getpid();
  if (watched) g_process.store(process, std::memory_order_relaxed);
  return process;
}

}  // namespace netro
