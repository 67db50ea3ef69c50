// Types that the public classes share.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

namespace netro {

/// Bytes as they stand on the wire.
using Bytes = std::vector<std::uint8_t>;

/// A point in time as days since 30 December 1899, the fraction being the time of day.
using Date = double;

/// As many as a time has, rounded up.
inline std::int32_t WholeSeconds(std::chrono::milliseconds Time) {
  return static_cast<std::int32_t>(std::chrono::ceil<std::chrono::seconds>(Time).count());
}

}  // namespace netro
