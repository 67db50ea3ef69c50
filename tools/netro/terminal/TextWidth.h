// Texts cut and filled to columns, each UTF-8 character counting as one. Thread: any.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace netro::tool {

/// `text` with at most so many characters; what was cut off leaves an ellipsis.
std::string Shortened(std::string_view text, std::size_t characters);
/// The same, filled up with blanks.
std::string Fitted(std::string_view text, std::size_t characters);
/// As Shortened, but cut in the middle: URLs of one host differ at their ends.
std::string ShortenedInside(std::string_view text, std::size_t characters);

std::size_t CharacterCount(std::string_view text);

}  // namespace netro::tool
