// Small text helpers. Letters are the ASCII letters, whatever the locale; all other bytes count as
// they are. Thread: any.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

bool IsAlphanumeric(char c);

std::string ToLower(std::string_view text);

bool EqualsIgnoreCase(std::string_view a, std::string_view b);

bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix);

/// `text` without the blanks and tabs at both ends.
std::string Trim(std::string_view text);
/// The same as a part of `text`; of nothing but blanks, the empty one at its end.
std::string_view Trimmed(std::string_view text);

/// The parts of `text` between the separators: one more than there are separators, so an empty text
/// gives one empty part.
std::vector<std::string> Split(std::string_view text, char separator);

/// Appends the number of a byte as two hexadecimal digits, the letters large.
void AppendHex(std::string& out, char byte);

/// True when `text` holds CR, LF or NUL, the bytes that would end a protocol line early.
bool HasControl(std::string_view text);

/// True when `text` holds any byte below the blank, or DEL.
bool HasControlCharacter(std::string_view text);

/// `text` without the characters whose code, 0 to 255, is at most `lower` or above `upper`.
std::string CharFilter(std::string_view text, int lower, int upper);

/// True for dot-separated labels of 1 to 63 letters, digits, "-" and "_", with or without a dot at
/// the end, of at most 255 characters. Every dotted address is one as well.
bool IsHostName(std::string_view text);

/// The same for texts that differ in case only.
std::size_t HashIgnoreCase(std::string_view text);

}  // namespace netro
