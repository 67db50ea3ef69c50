// UTF-8 (RFC 3629). Thread: any.
#pragma once

#include <netro/ShownText.h>  // IsUtf8

#include <cstddef>
#include <string>
#include <string_view>

namespace netro {

/// How many bytes the character at `at` has, 1 to 4; 0 when it is no well-formed one: cut, longer
/// than need be, a surrogate, or beyond U+10FFFF.
std::size_t Utf8Length(std::string_view text, std::size_t at);

/// True when no byte is above 127.
bool IsAscii(std::string_view text);

/// Appends the character; U+FFFD for what is none.
void AppendUtf8(std::string& out, char32_t character);

/// Takes each byte for the character of its number, as ISO-8859-1 does.
std::string Latin1ToUtf8(std::string_view text);

}  // namespace netro
