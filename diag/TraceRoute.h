// One running TraceRt of an ICMPCls. Made on the caller's stack; it works on a copy of the settings
// and outlives a deletion of the object, which it then no longer touches.
#pragma once

#include <netro/ICMPCls.h>

#include "platform/CallState.h"
#include "socket/EchoExchange.h"
#include "socket/Wait.h"

namespace netro {

class TraceRoute {
 public:
  explicit TraceRoute(ICMPCls& owner);

  /// Returns 0 or the error number.
  std::int32_t Run(const std::string& host);

 private:
  std::int32_t Pause();
  std::int32_t AskHop(std::int32_t ttl);
  std::int32_t Raise();

  ICMPCls& owner_;
  std::shared_ptr<CallState> call_;
  const CancelMark mark_;
  const ICMPCls::Settings settings_;
  EchoExchange exchange_;
  IpAddress ip_;
  EchoRequest request_;
  EchoOutcome outcome_;  // of the latest hop
  bool reached_ = false;
};

}  // namespace netro
