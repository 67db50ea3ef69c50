// Base64 (RFC 4648, section 4). Thread: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace netro {

/// Encodes `bytes` in one line, padded with "=".
std::string Base64Encode(std::string_view bytes);

/// The bytes of a full line in a mail, and its length with CR LF (RFC 2045, section 6.8).
inline constexpr std::size_t kBase64LineBytes = 57;
inline constexpr std::size_t kBase64LineSize = 78;

/// The length of `bytes` bytes encoded in lines of 76 characters, the last one shorter, each of
/// them ended by CR LF; 0 for no bytes.
std::uint64_t Base64LinesSize(std::uint64_t bytes);
/// Writes them to `to`, which has room for that, and returns the place behind them.
char* EncodeBase64Lines(std::string_view bytes, char* to);

/// Decodes `text`; blanks, tabs and line ends are skipped wherever they stand.
/// Gives nothing when another foreign character occurs, or when the padding is missing, too long,
/// in the middle, or follows bits that no encoder leaves behind (RFC 4648, section 3.5).
std::optional<std::string> Base64Decode(std::string_view text);

}  // namespace netro
