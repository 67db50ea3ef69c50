// Standard input as the body of a request.

#include "get/InputBody.h"

#include <netro/MessageLoop.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

namespace netro::tool {

std::ptrdiff_t ReadStandardInput(std::span<std::uint8_t> room) {
  constexpr std::chrono::milliseconds kPause(10);
  pollfd input{STDIN_FILENO, POLLIN, 0};
  while (::poll(&input, 1, 0) == 0) {
    if (MessageLoop::ForThisThread().Sleep(kPause) != 0) return -1;
  }
  ssize_t count = 0;
  do {
    count = ::read(STDIN_FILENO, room.data(), room.size());
  } while (count < 0 && errno == EINTR);
  return count;
}

}  // namespace netro::tool
