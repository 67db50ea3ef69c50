// The file that "netro watch --html" keeps: whoever reads it sees a whole page at any time. Thread:
// the loop's.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "terminal/Stopwatch.h"
#include "watch/Watcher.h"

namespace netro::tool {

class WatchPageFile {
 public:
  explicit WatchPageFile(std::string name);

  /// Writes the page. Returns the empty text, or why that failed.
  std::string Write(const Watcher& watcher);
  /// The same if there is something new. With so many hosts that writing takes its time, it is put
  /// off until it costs no more than a twentieth of it.
  std::string Update(const Watcher& watcher);

 private:
  std::string Failed(const std::string& what) const;
  std::string WriteTo(const std::string& temporary, const Watcher& watcher) const;

  const std::string name_;
  std::int32_t round_ = -1;  // of the page
  double cost_ = 0;          // seconds of the last Write
  std::optional<Stopwatch> sinceWrite_;
};

}  // namespace netro::tool
