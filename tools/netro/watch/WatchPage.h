// The page of "netro watch --html". Thread: any one.
#pragma once

#include <functional>
#include <string_view>

#include "watch/Watcher.h"

namespace netro::tool {

using HtmlSink = std::function<void(std::string_view html)>;

/// Writes the whole page, piece by piece. It needs no other file and runs no script; it is
/// well-formed XML as well, and all foreign text in it is escaped.
void WriteWatchPage(const Watcher& watcher, const HtmlSink& out);

}  // namespace netro::tool
