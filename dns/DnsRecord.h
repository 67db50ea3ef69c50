// One resource record of a DNS message as a DNSCLS. Any thread.
#pragma once

#include <netro/DNSCLS.h>

#include <cstdint>
#include <span>

#include "support/ByteReader.h"

namespace netro {

/// Reads the record at the reader's position, which is an offset into `message`. False when it is
/// malformed. What the record's data holds beyond what its type needs is skipped.
bool ReadRecord(std::span<const std::uint8_t> message, ByteReader& reader, DNSCLS& record);

}  // namespace netro
