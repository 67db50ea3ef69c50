// Name lookup by DNS servers. On the caller's thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "dns/NameQuestion.h"

namespace netro {

/// The servers of a list "host[:port],...", IPv6 addresses in brackets; blanks and empty elements
/// do not matter. None when an element is no server.
std::optional<std::vector<DnsServer>> ParseServerList(const std::string& list);

/// Asks for the records of these types (A, AAAA, PTR), all at the same time; an answer for each.
/// The servers are asked in their order, those that were silent lately at the end; one that is
/// silent is asked again when those behind it do not know better. Errors: 59, 11004, 11002, 9999,
/// 10002 at the deadline, 10055.
std::vector<LookupAnswer> AskServers(const std::vector<DnsServer>& servers, const std::string& name,
                                     const std::vector<std::int32_t>& types,
                                     const LookupRules& rules, const CancelMark& mark,
                                     TimePoint deadline);

}  // namespace netro
