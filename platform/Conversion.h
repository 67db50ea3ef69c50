// The conversions of character sets that the system offers, below CodePage.h. Any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace netro {

inline constexpr std::string_view kUtf8 = "utf-8";
bool IsUtf8Name(std::string_view name);

/// Nothing when the text does not fit, or the system does not know the set. No character is
/// replaced by another.
std::optional<std::string> FromUtf8BySystem(std::string_view utf8, std::string_view charSet);
std::optional<std::string> ToUtf8BySystem(std::string_view text, std::string_view charSet);

/// The character set that the user has chosen, by its name in MIME, in lower case.
std::string SystemCharSet();

}  // namespace netro
