// Quoted-printable for text (RFC 2045, section 6.7). Thread: any.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace netro {

/// Appends `text` in lines of at most 76 characters. CR LF, CR or LF alone end a line of the text
/// and become CR LF; a text that does not end so gets no CR LF either. What a mail system could
/// damage is encoded: blanks and tabs at the end of a line, and a dot or "From " at the start of
/// one.
void AppendQuotedPrintable(std::string& out, std::string_view text);

/// What to reserve for that, so that a large text needs memory once: hardly more than it takes, and
/// less only for odd texts.
std::size_t QuotedPrintableRoom(std::string_view text);

}  // namespace netro
