// Character references of HTML. Thread: any.
#pragma once

#include <cstddef>
#include <string_view>

namespace netro {

/// Reads the reference that begins with the "&" at `at`: one of the names of HTML 4, or a number,
/// with its semicolon. Returns its length, and the character in `character`; 0 when there is none.
std::size_t ReadEntity(std::string_view html, std::size_t at, char32_t& character);

}  // namespace netro
