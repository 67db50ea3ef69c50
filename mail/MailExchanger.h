// Finds the mail exchanger of a domain (RFC 5321, section 5) by its MX records. On the caller's
// thread, blocking under the caller's cancellation; touches nothing that an event may delete.
#pragma once

#include <netro/SMTPSettings.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "dns/DnsExchange.h"
#include "socket/Wait.h"

namespace netro {

/// An exchanger has a name; its address is empty when it cannot be found.
struct MailExchanger {
  std::string name;
  std::string address;
  /// All exchangers, in the order in which they are to be tried: equal preferences at random (RFC
  /// 5321, section 5.1). 20 at most.
  std::vector<std::string> all;
  bool isGlue = false;  // the address came with the exchanger's record: nobody else need be asked
  /// Why there is no name: 59 no such domain, 22 nothing to deliver to, 10131 it takes no mail;
  /// all others mean that nobody could tell, and the next try may.
  std::int32_t dnsError = 0;
};

/// The DNS servers of the settings as "host[:port]" separated by commas; none: the default ones.
std::optional<std::string> NameServers(const SMTPValues& settings);

/// The servers that are asked about a domain, in their order. 0, or why there are none: a result of
/// QueryDNSCLS. Blocks as HostLookup::DefaultServers.
std::int32_t LookupServers(const SMTPValues& settings, const CancelMark& mark,
                           std::vector<DnsServer>& servers);

/// Which one is the exchanger: the first by name of those with the least preference, as their last
/// four digits have it, or the first of `all`.
enum class ExchangerChoice { ByName, FirstOfAll };

/// Asks the servers of the settings in their order until one names an exchanger. `line` gets a
/// transcript line for each exchange. An address literal is its own exchanger, and so is a
/// domain with an address and no exchangers.
MailExchanger FindMailExchanger(const SMTPValues& settings, const std::string& domain,
                                const CancelMark& mark,
                                const std::function<void(const std::string&)>& line,
                                ExchangerChoice choice = ExchangerChoice::ByName);

}  // namespace netro
