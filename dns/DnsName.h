// Domain names on the wire (RFC 1035, sections 3.1 and 4.1.4). Any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "support/ByteReader.h"
#include "support/ByteWriter.h"

namespace netro {

/// How names stand in texts: with the bytes of their labels as they are, so that a dot inside of
/// one looks like those between them; or escaped as in a zone file (RFC 1035, section 5.1), a
/// backslash before . \ " ( ) ; @ and $, and "\032" for what is no printable ASCII.
enum class NameForm { Plain, Escaped };

/// Appends a dotted name; a dot at the end is fine, "." is the root. False when it is none: empty,
/// with an empty label, a label over 63 bytes, over 255 in all, or with an escape that is none.
/// Then nothing was appended.
bool WriteName(std::string_view name, ByteWriter& writer, NameForm form = NameForm::Plain);

/// Reads a name into `name`, without a dot at the end. `reader` reads `message` from its start, so
/// that its position is an offset into the message, and bounds what stands in place; what pointers
/// lead to may lie outside. False when the name is malformed: it goes beyond the end, a pointer
/// does not lead backwards or is the 129th, a length byte is 64 to 191, or it has over 255 bytes.
bool ReadName(std::span<const std::uint8_t> message, ByteReader& reader, std::string& name,
              NameForm form = NameForm::Plain);

/// A dotted name in the form in which ReadName gives it; as it is when it is none.
std::string NormalName(std::string_view name, NameForm form);

/// The mail address that an escaped name stands for (RFC 1035, section 8): its first label and the
/// others. Empty when they are none without quoting.
std::string MailboxOf(std::string_view name);

}  // namespace netro
