// The probes of a watcher that are under way: each is a task, and none waits for another. Lives on
// its loop's thread.
#pragma once

#include <netro/Task.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <unordered_map>

#include "diag/WatchProbe.h"

namespace netro {

class WatchProbes {
 public:
  /// Names one probe; never 0.
  using Number = std::uint64_t;
  /// Is called once for each probe that was not cancelled, from the loop, never inside Begin. May
  /// delete the object.
  using Ended = std::function<void(Number number, const ProbeResult& result)>;

  explicit WatchProbes(Ended ended);
  /// Cancels all.
  ~WatchProbes();
  WatchProbes(const WatchProbes&) = delete;
  WatchProbes& operator=(const WatchProbes&) = delete;

  /// For the probes that are begun from now on.
  void Configure(const WatchSettings& settings, std::shared_ptr<TlsProvider> tls);
  /// The probe may wait for its turn: of those with a connection 512 run at a time, which leaves
  /// descriptors to the rest of a program that may have a thousand. Names are looked up 32 at a
  /// time, and wait in a row of their own.
  Number Begin(const WatchTarget& target);
  /// To be called now and then: begins what a lack of memory has held up.
  void Resume();
  void Cancel(Number number);
  void CancelAll();

 private:
  struct Probe;
  struct Shared;

  const std::shared_ptr<Shared> shared_;
};

}  // namespace netro
