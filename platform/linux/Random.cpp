#include "platform/Random.h"

#include <sys/random.h>

#include <cerrno>

namespace netro {

std::uint32_t RandomNumber() {
  std::uint32_t number = 0;
  while (getrandom(&number, sizeof number, 0) < 0 && errno == EINTR) continue;
  return number;
}

}  // namespace netro
