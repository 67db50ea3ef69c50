// Whether a fetch that failed is tried again, and when. Thread: any.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "get/HttpResult.h"

namespace netro::tool {

/// True for what may be gone in a moment: time-outs, connections refused or lost, names that nobody
/// could tell, and the answers 408, 429, 500, 502, 503 and 504.
bool IsPassing(const HttpResult& result);
bool IsPassingStatus(std::int32_t status);

/// How long to wait before try number `next` (2 is the first repetition): what the server's
/// Retry-After says, else one second, doubled each time. None when that is more than an hour.
std::optional<std::chrono::seconds> PauseBefore(std::int32_t next, const HttpResult& result);

}  // namespace netro::tool
