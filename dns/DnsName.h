// Domain names on the wire (RFC 1035, sections 3.1 and 4.1.4). Any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "support/ByteReader.h"
#include "support/ByteWriter.h"

namespace netro {

/// Appends a dotted name; a dot at the end is fine, "." is the root. False when it is none: empty,
/// with an empty label, a label over 63 bytes, or over 255 in all. Then nothing was appended.
bool WriteName(std::string_view name, ByteWriter& writer);

/// Reads a name into `name`, without a dot at the end. `reader` reads `message` from its start, so
/// that its position is an offset into the message, and bounds what stands in place; what pointers
/// lead to may lie outside. False when the name is malformed: it goes beyond the end, a pointer
/// does not lead backwards or is the 129th, a length byte is 64 to 191, or it has over 255 bytes.
bool ReadName(std::span<const std::uint8_t> message, ByteReader& reader, std::string& name);

}  // namespace netro
