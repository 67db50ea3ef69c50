// The OPT record of a DNS message (RFC 6891, section 6.1). Any thread.
#pragma once

#include <netro/EDNSCLS.h>

#include <cstdint>
#include <optional>

#include "support/ByteReader.h"
#include "support/ByteWriter.h"

namespace netro {

constexpr std::int32_t kTypeOpt = 41;

/// Appends one of version 0 without options.
void WriteOpt(std::uint16_t udpSize, bool dnssecOk, ByteWriter& writer);

/// Reads the record at the reader's position. None when it is no OPT record, or its owner is not
/// the root, or its options do not fill its data.
std::optional<EDNSCLS> ReadOpt(ByteReader reader);

}  // namespace netro
