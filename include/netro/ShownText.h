// Text from others as a terminal, a page or a log may show it. Any thread.
#pragma once

#include <netro/Export.h>

#include <string>
#include <string_view>

namespace netro {

/// True for well-formed UTF-8 (RFC 3629), and so for ASCII.
NETRO_EXPORT bool IsUtf8(std::string_view text);

/// `text` without what could disturb the place that shows it or mislead who reads it: control
/// characters (U+0000 to 001F, 007F to 009F) but for tab and line end, and bytes that are no UTF-8,
/// become "\x1B", each byte so; marks that turn the direction of writing (U+061C, 200E, 200F, 202A
/// to 202E, 2066 to 2069) and separators of lines (U+2028, 2029) become "\u202E". CR LF becomes LF.
NETRO_EXPORT std::string ShownText(std::string_view text);

/// A URL as somebody wrote it, good or bad, for showing: `instead` in place of user and password,
/// and "?" for controls.
NETRO_EXPORT std::string ShownUrl(std::string_view url, std::string_view instead = {});

/// Whether ShownText would leave the text as it is, but for CR and LF.
NETRO_EXPORT bool IsHarmlessText(std::string_view text);

}  // namespace netro
