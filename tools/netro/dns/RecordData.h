// The data of DNS record types that the library hands over undecoded, as zone files write them.
// Thread: any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace netro::tool {

/// `bytes` as the RFC of the type has it; the form for any type ("\# 4 0A000001") when the type is
/// not known here or the bytes do not fit it.
std::string RecordData(std::int32_t type, std::string_view bytes);

}  // namespace netro::tool
