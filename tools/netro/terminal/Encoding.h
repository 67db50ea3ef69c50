// Bytes made readable: text for terminals, hexadecimal, Base64 (RFC 4648).
// Thread: any.
#pragma once

#include <netro/ShownText.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace netro::tool {

/// ShownText on one line without blanks at its end; a text longer than 500 bytes is cut.
std::string OnOneLine(std::string_view bytes);

/// "05 01 00", and "050100".
std::string Hex(std::string_view bytes);
std::string HexDigits(std::string_view bytes);

std::string Base64(std::string_view bytes);

/// Replaces "%41" by "A"; a "%" without two digits stays.
std::string PercentDecode(std::string_view text);

}  // namespace netro::tool
