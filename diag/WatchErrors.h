// The numbers of WatchpostCls::LastErr; docs/watch.md lists them with their texts.
#pragma once

#include <cstdint>

namespace netro {

enum WatchError : std::int32_t {
  kNoFile = 1,
  kUnreadable = 2,
  kUnusable = 3,
  kNoTimer = 4,
  kNoLog = 5,
  kAlreadyObserving = 6,
  kNothingToStop = 7,
  kAlreadyPaused = 8,
  kNotToPause = 9,
  kNotToContinue = 10,
  kAlreadyStarted = 11,
  kBusy = 12,
  kNotStarted = 13,
  kMailFailed = 14,
  kProgramFailed = 15,
  kLogFailed = 16,
  kBadHost = 17,
  kNoEchoAllowed = 18,
  kHookFailed = 19,
  kStateFailed = 20,
};

}  // namespace netro
