// Texts as JSON has them (RFC 8259, section 7). Thread: any.
#pragma once

#include <string>
#include <string_view>

namespace netro {

/// The text in double quotes. Control characters are escaped; bytes that are no UTF-8 become
/// U+FFFD.
std::string JsonText(std::string_view text);

}  // namespace netro
