// Names, strings and bytes as a zone file writes them (RFC 1035, section 5.1): printable ASCII
// only, all other bytes as "\200". Thread: any.
#pragma once

#include <string>
#include <string_view>

namespace netro {

class IpAddress;

/// A string in double quotes.
std::string ZoneString(std::string_view text);

/// The same without quotes, for what is one word; those inside stand as they are.
std::string ZoneWord(std::string_view text);

/// Bytes in the form for data of any type: "\# 4 0A000001" (RFC 3597, section 5).
std::string ZoneBytes(std::string_view bytes);

/// Hexadecimal digits without blanks, in upper case.
std::string HexDigits(std::string_view bytes);

/// An address of an AAAA record, one that holds an IPv4 address too ("::ffff:192.0.2.1").
std::string ZoneIPv6(const IpAddress& address);

}  // namespace netro
