// What one lookup has learnt of DNS servers and the next one, on any thread, had better know. Any
// thread.
#pragma once

#include <vector>

#include "dns/DnsExchange.h"

namespace netro {

class ServerMemory {
 public:
  /// The numbers of the servers in the order in which to ask them: those that were silent within
  /// the last minute come last.
  static std::vector<std::size_t> Order(const std::vector<DnsServer>& servers);
  static void WasSilent(const DnsServer& server);
  static void Answered(const DnsServer& server);

  /// A server that refuses extended queries (RFC 6891, section 7) gets plain ones for an hour.
  static bool RefusesEdns(const DnsServer& server);
  static void RefusedEdns(const DnsServer& server);
};

}  // namespace netro
