// A DNSCLS as a line of a zone file (RFC 1035, section 5.1). Thread: any.
#pragma once

#include <netro/DNSCLS.h>

#include <cstdint>
#include <string>

namespace netro::tool {

/// The data of a record: "10 mail.example.com." Printable ASCII only, whatever the record holds.
std::string ZoneData(const DNSCLS& record);

/// TTL as the number that it was on the wire.
std::uint32_t TimeToLive(const DNSCLS& record);

}  // namespace netro::tool
