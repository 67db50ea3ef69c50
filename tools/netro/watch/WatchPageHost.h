// A host in the page of "netro watch --html". Thread: any one.
#pragma once

#include <netro/WatchpostCls.h>

#include <string>

namespace netro::tool {

/// The head of the table.
extern const char* const kHostColumns;

/// A row; `isEnded`: there is no next probe.
std::string HostRow(const WatchedHost& host, const WatchedPast& past, Date now, bool isEnded);

}  // namespace netro::tool
