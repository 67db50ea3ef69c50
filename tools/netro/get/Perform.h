// How a URL of "netro get" is fetched. Thread: the loop's.
#pragma once

#include <functional>

#include "get/Fetch.h"
#include "get/GetOptions.h"
#include "terminal/ProgressLines.h"

namespace netro::tool {

/// True once the user has pressed Ctrl-C.
using Stopped = std::function<bool()>;

/// Fetches the URL, again where that is wanted; a line shows how far it is. Blocks.
void Perform(Fetch& fetch, const GetOptions& options, const GetRequest& request,
             ProgressLines& lines, const Stopped& stopped);

}  // namespace netro::tool
