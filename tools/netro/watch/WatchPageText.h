// Foreign text and times in the page of "netro watch --html". Thread: any.
#pragma once

#include <netro/WatchpostCls.h>

#include <string>
#include <string_view>

namespace netro::tool {

/// Foreign text for an element or a quoted attribute. Characters that turn the writing direction
/// are shown by their number.
std::string Escaped(std::string_view text);

/// The same in an element of its own: its writing direction is no one else's. Long text is cut.
std::string Isolated(std::string_view text);

std::string TimeElement(Date date);

/// A cell of a table that tells a state, with more HTML below it.
std::string StateCell(WatchedStateEnum state, std::string_view word, const std::string& more);

}  // namespace netro::tool
