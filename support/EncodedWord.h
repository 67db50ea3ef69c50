// Encoded words: characters beyond ASCII in header fields (RFC 2047). Thread: any.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace netro {

inline constexpr std::size_t kLongestEncodedWord = 75;

/// `utf8` as encoded words with a blank between them, fit for names and comments too, in the
/// shorter of the encodings B and Q. The first one has at most `first` characters, 28 to 75.
std::string EncodedWords(std::string_view utf8, std::size_t first);

/// True when an encoded word of EncodedWords is in `text`.
bool HoldsEncodedWord(std::string_view text);

}  // namespace netro
