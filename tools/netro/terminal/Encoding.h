// Bytes made readable: UTF-8 (RFC 3629), text for terminals, hexadecimal, Base64 (RFC 4648).
// Thread: any.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace netro::tool {

/// Bytes of the well-formed UTF-8 character at the beginning of `text`; 0 when there is none.
std::size_t Utf8Length(std::string_view text);

bool IsUtf8(std::string_view text);

/// True for UTF-8 without control characters other than tabs and line ends.
bool IsPlainText(std::string_view bytes);

/// `bytes` for a terminal: control characters other than tab and line end, and what is no UTF-8,
/// become "\x1B". CR LF becomes LF.
std::string Printable(std::string_view bytes);

/// The same on one line without blanks at its end; a text longer than 500 bytes is cut.
std::string OnOneLine(std::string_view bytes);

/// "05 01 00"
std::string Hex(std::string_view bytes);

std::string Base64(std::string_view bytes);

/// Replaces "%41" by "A"; a "%" without two digits stays.
std::string PercentDecode(std::string_view text);

}  // namespace netro::tool
