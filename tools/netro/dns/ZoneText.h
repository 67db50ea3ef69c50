// Names and strings as a zone file writes them (RFC 1035, section 5.1): printable ASCII only, all
// other bytes as "\200". Thread: any.
#pragma once

#include <string>
#include <string_view>

namespace netro::tool {

/// A name of the library, asked for with EscapeNames, with a dot at the end; the root is ".".
std::string ZoneName(std::string_view name);

/// One label of a name; a dot inside becomes "\.".
std::string ZoneLabel(std::string_view label);

/// A string in double quotes.
std::string ZoneString(std::string_view text);

/// Bytes in the form for data of any type: "\# 4 0A000001" (RFC 3597, section 5).
std::string ZoneBytes(std::string_view bytes);

/// Hexadecimal digits without blanks, in upper case.
std::string HexDigits(std::string_view bytes);

}  // namespace netro::tool
