// One resource record of a DNS message as a DNSCLS. Any thread.
#pragma once

#include <netro/DNSCLS.h>

#include <cstdint>
#include <span>

#include "dns/DnsName.h"
#include "support/ByteReader.h"

namespace netro {

/// Reads the record at the reader's position, which is an offset into `message`, with its names in
/// this form. False when it is malformed. What the record's data holds beyond what its type needs
/// is skipped.
bool ReadRecord(std::span<const std::uint8_t> message, ByteReader& reader, NameForm form,
                DNSCLS& record, std::uint16_t& classNumber);

}  // namespace netro
