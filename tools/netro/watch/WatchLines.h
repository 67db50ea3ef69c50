// "netro watch" in lines: one for each change, or for each probe. Thread: the loop's.
#pragma once

#include <string>

#include "watch/Watcher.h"

namespace netro::tool {

/// "2026-11-21T14:36:07.123Z down   web (http://web.test/): HTTP answer: ...", with its line end.
std::string ProbeLine(const WatchedHost& host, HostNews news);

class WatchLines final : public WatchListener {
 public:
  void Probed(const Watcher& watcher, std::int32_t index, HostNews news) override;
};

}  // namespace netro::tool
