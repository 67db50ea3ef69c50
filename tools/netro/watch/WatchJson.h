// "netro watch --json". Thread: any one.
#pragma once

#include "watch/Watcher.h"

namespace netro::tool {

/// A line for each change, as it happens.
class WatchJson final : public WatchListener {
 public:
  void Changed(const Watcher& watcher, const WatchNews& news) override;
};

/// The line at the end, with all that is known.
void PrintWatchJson(const Watcher& watcher);

}  // namespace netro::tool
