#include "platform/Random.h"

#include "platform/windows/System.h"

namespace netro {

std::uint32_t RandomNumber() {
  std::uint32_t number = 0;
  BCryptGenRandom(nullptr, reinterpret_cast<UCHAR*>(&number), sizeof number,
                  BCRYPT_USE_SYSTEM_PREFERRED_RNG);
  return number;
}

}  // namespace netro
