#include "platform/Clock.h"
#include "platform/windows/System.h"

namespace netro {
namespace {

// The system counts 100 ns since the year 1601.
constexpr std::int64_t kToUnix = 116'444'736'000'000'000;

std::int64_t Count(const FILETIME& time) {
  return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}

FILETIME ToFileTime(std::int64_t count) {
  return {static_cast<DWORD>(count & 0xFFFFFFFF), static_cast<DWORD>(count >> 32)};
}

}  // namespace

// By the rules of the year in question, which GetTimeZoneInformation would not know.
std::chrono::seconds LocalTimeOffset(std::chrono::sys_time<std::chrono::nanoseconds> time) {
  const std::int64_t utc =
      time.time_since_epoch().count() / 100 / 10'000'000 * 10'000'000 + kToUnix;
  const FILETIME moment = ToFileTime(utc);
  SYSTEMTIME parts{};
  SYSTEMTIME local{};
  FILETIME localMoment{};
  if (utc < 0 || FileTimeToSystemTime(&moment, &parts) == 0 ||
      SystemTimeToTzSpecificLocalTime(nullptr, &parts, &local) == 0 ||
      SystemTimeToFileTime(&local, &localMoment) == 0) {
    return std::chrono::seconds(0);
  }
  return std::chrono::seconds((Count(localMoment) - utc) / 10'000'000);
}

}  // namespace netro
