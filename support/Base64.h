// Base64 (RFC 4648, section 4). Thread: any.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace netro {

/// Encodes `bytes` in one line, padded with "=".
std::string Base64Encode(std::string_view bytes);

/// Appends `bytes` encoded in lines of 76 characters (RFC 2045, section 6.8), the last one shorter,
/// each of them ended by CR LF; nothing for no bytes. Takes memory for the result only, once.
void AppendBase64Lines(std::string& out, std::string_view bytes);

/// Decodes `text`; blanks, tabs and line ends are skipped wherever they stand.
/// Gives nothing when another foreign character occurs, or when the padding is missing, too long,
/// in the middle, or follows bits that no encoder leaves behind (RFC 4648, section 3.5).
std::optional<std::string> Base64Decode(std::string_view text);

}  // namespace netro
