// Types that the public classes share.
#pragma once

#include <cstdint>
#include <vector>

namespace netro {

/// Bytes as they stand on the wire.
using Bytes = std::vector<std::uint8_t>;

/// A point in time as days since 30 December 1899, the fraction being the time of day.
using Date = double;

}  // namespace netro
