// "netro watch" in lines: one for each change and first answer, or for each probe. Thread: the
// loop's.
#pragma once

#include <string>

#include "watch/Watcher.h"

namespace netro::tool {

/// "2026-11-21T14:36:07.123Z down   web (http://web.test/): HTTP answer: ...", with its line end.
std::string ChangeLine(const WatchNews& news);

class WatchLines final : public WatchListener {
 public:
  void Probed(const Watcher& watcher, const WatchedHost& host, bool isFirstAnswer) override;
  void Changed(const Watcher& watcher, const WatchNews& news) override;
};

}  // namespace netro::tool
