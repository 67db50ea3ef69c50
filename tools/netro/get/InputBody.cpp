// Standard input as the body of a request.

#include "get/InputBody.h"

#include <netro/MessageLoop.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "terminal/System.h"

namespace netro::tool {

std::ptrdiff_t ReadStandardInput(std::span<std::uint8_t> room) {
  constexpr std::chrono::milliseconds kPause(10);
  while (!IsInputReady()) {
    if (MessageLoop::ForThisThread().Sleep(kPause) != 0) return -1;
  }
  ssize_t count = 0;
  do {
    count = ::read(STDIN_FILENO, room.data(), static_cast<unsigned>(room.size()));
  } while (count < 0 && errno == EINTR);
  return count;
}

}  // namespace netro::tool
