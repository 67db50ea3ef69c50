// The one wait routine: every blocking call of the library sleeps here.
#pragma once

#include <functional>
#include <memory>

#include "platform/Clock.h"
#include "socket/CallState.h"
#include "socket/SocketModule.h"

namespace netro {

/// Notes on entry of a blocking call how often it was told to stop, so that a Kill of before is not
/// taken for one of now.
class CancelMark {
 public:
  CancelMark(std::shared_ptr<SocketModule> module, std::shared_ptr<CallState> object)
      : module_(std::move(module)),
        object_(std::move(object)),
        kills_(module_->Kills()),
        stops_(object_->stops) {}

  /// True when the object was told to stop or is gone, or a socket of the thread was killed.
  bool Cancelled() const {
    return object_->stops != stops_ || module_->Kills() != kills_ || !object_->alive;
  }
  SocketModule& Module() const { return *module_; }

 private:
  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> object_;
  std::uint32_t kills_;
  std::uint32_t stops_;
};

enum class WaitEnd { Done, TimedOut, Cancelled };

/// Pumps messages until `done()` is true, the deadline is reached, or the mark is cancelled, tested
/// in this order after each pump; sleeps in between. `done` must not touch objects that an event
/// may have deleted.
WaitEnd WaitUntil(const CancelMark& mark, TimePoint deadline, const std::function<bool()>& done);

/// The error number of a wait's end: 0, 10002 or 9999.
std::int32_t WaitError(WaitEnd end);

}  // namespace netro
