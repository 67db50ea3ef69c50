// "netro watch --json". Thread: any one.
#pragma once

#include "watch/Watcher.h"

namespace netro::tool {

void PrintWatchJson(const Watcher& watcher);

}  // namespace netro::tool
