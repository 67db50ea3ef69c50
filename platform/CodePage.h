// Character sets, through the system's tables. Names are those of MIME, in any case. Any thread;
// nothing here depends on what setlocale has set.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace netro {

/// True for a name of 1 to 40 letters, digits, "-", "_", ".", ":" and "+", which cannot spoil a
/// header. The system need not know it.
bool IsCharSetName(std::string_view name);

/// `utf8` in that character set. Nothing when a character has no place there (none is replaced by
/// another), when `utf8` is not UTF-8, or when the character set is unknown or not fit for mail,
/// because ASCII text is other bytes in it (UTF-16 and the like).
std::optional<std::string> ConvertFromUtf8(std::string_view utf8, std::string_view charSet);

/// The way back; nothing when `text` is not written in that character set.
std::optional<std::string> ConvertToUtf8(std::string_view text, std::string_view charSet);

/// `text` as UTF-8 in any case: itself when it is that already, else out of `charSet`, else out of
/// ISO-8859-1.
std::string ToUtf8(std::string text, std::string_view charSet);

/// The character set of the locale in the environment (LC_ALL, LC_CTYPE, LANG) by its name in MIME,
/// in lower case, as "utf-8" or "iso-8859-15"; "utf-8" when it says none, or only ASCII.
std::string LocaleCharSet();

}  // namespace netro
