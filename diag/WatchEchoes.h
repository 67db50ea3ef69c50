// The echoes of a watcher's probes: one EchoRequests for all of them, asked by blocking calls in
// tasks. On its loop's thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include "diag/EchoRequests.h"
#include "platform/CallState.h"

namespace netro {

class WatchEchoes {
 public:
  WatchEchoes();

  /// Opens the socket for addresses like this one. Returns the error number; 10013 when the system
  /// allows this program no echo.
  std::int32_t Open(const IpAddress& ip) { return requests_.Open({ip}); }
  /// Sends one request and waits for its outcome; silence is one too. Returns 0, 9999 or 10055.
  std::int32_t Ask(const IpAddress& ip, std::int32_t size, std::chrono::milliseconds timeout,
                   EchoOutcome& outcome);

 private:
  struct Waiting {
    std::shared_ptr<CallState> call;
    EchoOutcome outcome;
    bool isOver = false;
  };

  void Ended(std::int32_t id, const EchoOutcome& outcome);

  std::unordered_map<std::int32_t, std::shared_ptr<Waiting>> waiting_;
  EchoRequests requests_;
};

}  // namespace netro
