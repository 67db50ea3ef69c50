#include <time.h>

#include "platform/Clock.h"

namespace netro {

std::chrono::seconds LocalTimeOffset(std::chrono::sys_time<std::chrono::nanoseconds> time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(time));
  tm local{};
  tzset();  // the zone may have changed since the program began
  if (localtime_r(&seconds, &local) == nullptr) return std::chrono::seconds(0);
  return std::chrono::seconds(local.tm_gmtoff);
}

}  // namespace netro
