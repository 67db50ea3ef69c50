// The plain text of an HTML page, for readers that show no HTML. Thread: any.
#pragma once

#include <string>
#include <string_view>

namespace netro {

/// The text of the body, or of the whole when there is no body: without tags, comments, scripts,
/// styles and titles, with entities as their characters, and with paragraphs, rows and the like on
/// lines of their own. White space is one blank, outside preformatted text. Links and pictures
/// leave nothing but their text. Lines end with CR LF, the last one without. `html` is UTF-8, and
/// so is the result; what is not closed lasts to the end.
std::string HtmlToText(std::string_view html);

}  // namespace netro
