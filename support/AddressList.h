// Address lists in header fields (RFC 5322, section 3.4). Thread: any.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace netro {

/// A list of addresses with its display names and comments in encoded words, the first of which has
/// at most `firstWord` characters, 30 to 75. The addresses stay as they are; one comma and a blank
/// stand between them, for semicolons too. `utf8` holds no control characters.
std::string EncodeAddressList(std::string_view utf8, std::size_t firstWord);

}  // namespace netro
