// The names of DNS record types, as zone files write them. Thread: any.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace netro::tool {

/// "MX"; "TYPE65280" for a number without a name (RFC 3597, section 5).
std::string RecordTypeName(std::int32_t number);

/// Reads "MX", "mx", "TYPE15" or "15"; 1 to 65,535.
std::optional<std::int32_t> RecordTypeNumber(std::string_view name);

}  // namespace netro::tool
