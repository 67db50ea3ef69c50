// Lines of a watcher's log: comma-separated values (RFC 4180). Thread: any.
#pragma once

#include <string>
#include <vector>

namespace netro {

/// Each field in double quotes, those in it doubled. A field that a spreadsheet would take for a
/// formula gets an apostrophe in front.
std::string WatchLogLine(const std::vector<std::string>& fields);

}  // namespace netro
