// How what works on a watcher's reports tells what went wrong. On its loop's thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "diag/WatchErrors.h"
#include "diag/WatchSettings.h"

namespace netro {

/// A WatchError, the word for the log's column "state", the host if it was about one,
/// and the text. Empty when nobody wants to know any more.
using WatchNotes = std::function<void(std::int32_t error, const char* state,
                                      const WatchFacts& facts, const std::string& text)>;

}  // namespace netro
