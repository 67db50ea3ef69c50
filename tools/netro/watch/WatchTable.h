// "netro watch" on a terminal: a table of the hosts that is drawn again in its place, with reports
// above it. Thread: the loop's.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "watch/Watcher.h"

namespace netro::tool {

class WatchTable final : public WatchListener {
 public:
  void Changed(const Watcher& watcher, const WatchNews& news) override;
  void Tick(const Watcher& watcher) override;
  void Problem(const std::string& text) override;

 private:
  void Erase();

  std::size_t drawn_ = 0;  // lines
  std::size_t width_ = 0;  // of the window then
  std::size_t height_ = 0;
};

}  // namespace netro::tool
