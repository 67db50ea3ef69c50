// The system's resolver configuration: which DNS servers it asks, and its own domain. Any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace netro {

struct ResolverConfig {
  std::vector<std::string> servers;  // IPv4, dotted, in the order of the configuration
  std::string domain;                // without a dot at its end
  bool readable = false;             // there is a configuration to read
};

/// Reads the text of a resolv.conf: every "nameserver" line that holds an IPv4 address; the last
/// of "domain" and "search", its first word. As in the system's resolver a keyword must begin its
/// line, "#" and ";" begin a comment, and what follows the word is ignored.
ResolverConfig ParseResolverConfig(std::string_view text);

/// Reads the system's files. Where the first names only the local stub of systemd-resolved, the
/// servers behind the stub come from the file that this keeps, and the domain too if it has one.
ResolverConfig ReadResolverConfig();

}  // namespace netro
