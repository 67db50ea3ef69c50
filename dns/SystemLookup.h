// Name lookup by the system's own resolver, which knows search lists and whatever else the system
// is configured with. On the caller's thread.
#pragma once

#include <memory>
#include <string>

#include "platform/Loop.h"
#include "socket/HostLookup.h"

namespace netro {

/// Begins a lookup on a helper thread, whose end is told to `call`; null when there are too many.
std::shared_ptr<LookupTask> BeginSystemLookup(const std::string& address, Loop& loop,
                                              std::shared_ptr<CallState> call);

/// The address of a name, or the name of a dotted address. Errors: 59, 9999, 10002, 10055.
LookupAnswer AskSystem(const std::string& address, const CancelMark& mark, TimePoint deadline);

}  // namespace netro
