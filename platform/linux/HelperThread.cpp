#include "platform/HelperThread.h"

#include <pthread.h>

#include <csignal>
#include <exception>
#include <thread>
#include <utility>

namespace netro {

bool RunOnHelperThread(std::function<void()> work) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // a new thread inherits it
  bool started = true;
  try {
    std::thread(std::move(work)).detach();
  } catch (const std::exception&) {  // no thread, or no memory
    started = false;
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return started;
}

}  // namespace netro
