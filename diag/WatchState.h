// The file that lets a watcher go on where it was: what is known of each host, and its past. It is
// written whole and renamed. One that is damaged is set aside, so that nothing is lost unseen.
// Thread: its owner's.
#pragma once

#include <netro/WatchpostCls.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "diag/WatchHistory.h"

namespace netro {

/// What is known of a host. The first three say which one it is.
struct WatchMemory {
  std::string name;
  std::string host;
  std::string kind;
  WatchedStateEnum state = WatchedUnknown;
  std::int32_t successes = 0;  // in a row
  std::int32_t failures = 0;
  std::int32_t lastMilliSeconds = -1;
  Date lastProbe = 0;
  Date since = 0;  // when the state began
  std::string lastText;
  std::string lastFailure;
  std::string judgement;  // what else the list of hosts wants to know again
};

class WatchStateWriter {
 public:
  WatchStateWriter();
  void Add(const WatchMemory& memory, const WatchHistory& history);
  /// A line for the others that want to find something again; keys are single words.
  void Add(const std::string& key, const std::string& value);
  /// Puts all that was added into the file. 0, or 20000 plus the system's number.
  std::int32_t Replace(const std::string& path) const;

 private:
  std::string text_;
  std::size_t hosts_ = 0;
};

struct WatchStateReader {
  std::function<void(WatchMemory&, WatchHistory&)> host;
  std::function<void(const std::string& key, const std::string& value)> other;
};

/// Reads the file, and calls the reader when all of it is sound. Returns the empty text, also when
/// there is no such file, else what was wrong. A file that is no state is then called
/// `path`.bad.
std::string ReadWatchState(const std::string& path, const WatchStateReader& reader);

}  // namespace netro
