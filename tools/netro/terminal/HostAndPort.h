// Reading of "host:port". Thread: any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace netro::tool {

/// Reads "host[:port]"; without a port `port` stays as it is. Throws UsageError, which names
/// `option`.
void ReadHostAndPort(const std::string& option, std::string_view text, std::string& host,
                     std::int32_t& port);

/// True for what can be a host name or a dotted address: labels of letters, digits, "-" and "_".
bool IsHostName(std::string_view host);

/// The host as it stands before a port: an IPv6 address in brackets. And both together.
std::string BracketedHost(const std::string& host);
std::string HostAndPortText(const std::string& host, std::int32_t port);

/// Throws UsageError unless `host` can be a host name or is an address.
void CheckHost(const std::string& host);

}  // namespace netro::tool
