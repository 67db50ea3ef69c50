// Header fields of a message, made of UTF-8 text (RFC 5322, 2047 and 2231). Characters beyond ASCII
// become encoded words of UTF-8, of at most 75 characters, that split no character. Lines are
// folded at 78 characters where blanks allow and never longer than 998. Control characters, CR, LF
// and NUL among them, count as blanks, so that no value makes a line of its own; a byte that is not
// UTF-8 becomes U+FFFD. Thread: any.
#pragma once

#include <string>
#include <string_view>

namespace netro {

/// Appends "name: value" CR LF for free text: a subject, a field of the user's.
void AppendTextField(std::string& out, std::string_view name, std::string_view utf8);

/// The same for addresses, as in From, To and CC. Only display names and comments are encoded. A
/// semicolon between addresses becomes a comma (RFC 5322, section 3.4).
void AppendAddressField(std::string& out, std::string_view name, std::string_view utf8);

/// Appends ";" CR LF TAB name="value", a parameter of a field whose last line is not ended yet. One
/// that holds more than printable ASCII, or would make the line too long, is written in
/// continuations (RFC 2231, section 4.1).
void AppendParameter(std::string& out, std::string_view name, std::string_view utf8);

}  // namespace netro
