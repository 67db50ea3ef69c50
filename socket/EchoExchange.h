// One echo request after the other, each waited for in the loop: what blocking calls use. Stands on
// the caller's stack.
#pragma once

#include <chrono>
#include <cstdint>

#include "platform/Echo.h"
#include "socket/Wait.h"

namespace netro {

class EchoExchange {
 public:
  explicit EchoExchange(const CancelMark& mark);

  /// For requests like this one. Returns the error number; 10013 when the system allows this
  /// program no echo.
  std::int32_t Open(const EchoRequest& request) { return echo_.Open(request); }
  /// Sends one request and waits for its outcome; silence is one too (11010). Returns 0 or 9999.
  std::int32_t Ask(const EchoRequest& request, std::chrono::milliseconds timeout,
                   EchoOutcome& outcome);

 private:
  const CancelMark mark_;
  Echo echo_;
  std::int32_t number_ = 0;  // of the request that is waited for; 0: none
  EchoOutcome outcome_;
};

}  // namespace netro
