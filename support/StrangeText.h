// The characters that a terminal, a page or a log must not get from others. Thread: any.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace netro {

/// How many bytes at `at` (before the end) are not to be shown as they are: those of a control
/// character, a mark of direction, a separator of lines, or 1 for a byte that is no UTF-8. 0 for
/// all others.
std::size_t StrangeLength(std::string_view text, std::size_t at);

/// Where from `at` on the first character is that is not in printable ASCII; the size without one.
std::size_t EndOfPrintable(std::string_view text, std::size_t at);

/// Appends what is strange as "\x1B", each byte so, or "\u202E".
void AppendEscaped(std::string& out, std::string_view strange);

}  // namespace netro
