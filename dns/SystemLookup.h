// Name lookup by the system's own resolver, which knows whatever the system is configured with. On
// the caller's thread.
#pragma once

#include <memory>
#include <string>

#include "platform/Loop.h"
#include "socket/HostLookup.h"

namespace netro {

/// Begins a lookup on a helper thread, whose end is told to `call`; null when there are too many.
/// Of a name without an address of the preferred family the other one is looked up, if it is
/// allowed.
std::shared_ptr<LookupTask> BeginSystemLookup(const std::string& address,
                                              AddressPreferenceEnum preference, Loop& loop,
                                              std::shared_ptr<CallState> call);

/// The same, waiting for it. Errors: 59, 11004, 11002, 9999, 10002, 10055.
LookupAnswer AskSystem(const std::string& address, AddressPreferenceEnum preference,
                       const CancelMark& mark, TimePoint deadline);

}  // namespace netro
