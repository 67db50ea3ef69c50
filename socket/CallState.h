// What a blocking call holds of its object: whether the object still lives, was told to stop, and
// is inside a call. Shared by the object and its running calls, so that it outlives a deletion.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace netro {

struct CallState {
  std::atomic<std::uint32_t> stops{0};  // grows with each StopWaiting; any thread
  bool alive = true;
  bool busy = false;
};

/// Marks an object as being inside a blocking call. `Refused` when it already is.
class BusyScope {
 public:
  explicit BusyScope(std::shared_ptr<CallState> state)
      : state_(std::move(state)), entered_(!std::exchange(state_->busy, true)) {}
  ~BusyScope() { Leave(); }
  BusyScope(const BusyScope&) = delete;
  BusyScope& operator=(const BusyScope&) = delete;

  bool Refused() const { return !entered_; }
  /// Ends the marking early: what still runs does not mind another call on the object.
  void Leave() {
    if (std::exchange(entered_, false)) state_->busy = false;
  }

 private:
  std::shared_ptr<CallState> state_;
  bool entered_;
};

}  // namespace netro
