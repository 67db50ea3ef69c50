#include "platform/HelperThread.h"

#include <exception>
#include <thread>
#include <utility>

namespace netro {

bool RunOnHelperThread(std::function<void()> work) try {
  std::thread(std::move(work)).detach();
  return true;
} catch (const std::exception&) {  // no thread, or no memory
  return false;
}

}  // namespace netro
