// Name lookup by DNS servers of the caller's choice. On the caller's thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "dns/DnsExchange.h"
#include "socket/HostLookup.h"

namespace netro {

/// The servers of a list "host[:port],..."; blanks and empty elements do not matter. None when an
/// element is no server.
std::optional<std::vector<DnsServer>> ParseServerList(const std::string& list);

/// The address of a name, or the name of a dotted address. The servers are asked in their order;
/// one that is silent is asked again, up to three times in all, when those behind it do not know
/// better. Errors: 59, 9999, 10002 at the deadline.
LookupAnswer AskServers(const std::vector<DnsServer>& servers, const std::string& address,
                        const CancelMark& mark, TimePoint deadline);

}  // namespace netro
