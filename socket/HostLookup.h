// Name lookup as the sockets need it. Connecting needs names and the DNS engine needs sockets; this
// interface, which dns/ implements, breaks the circle.
#pragma once

#include <cstdint>
#include <string>

#include "platform/Clock.h"
#include "socket/Wait.h"

namespace netro {

struct LookupAnswer {
  std::string text;  // dotted address, or a name for a reverse lookup; empty on failure
  std::int32_t error = 0;
};

class HostLookup {
 public:
  virtual ~HostLookup() = default;

  /// Looks up a name, or the name of a dotted address. Blocks, keeping the loop alive. Errors: 59
  /// no such host, 9999 cancelled, 10002 the deadline came first.
  virtual LookupAnswer Lookup(const std::string& address, const std::string& servers,
                              const CancelMark& mark, TimePoint deadline) = 0;
  /// Forgets all remembered answers.
  virtual void Clear() = 0;
};

/// The lookup of the calling thread.
HostLookup& DefaultHostLookup();

}  // namespace netro
