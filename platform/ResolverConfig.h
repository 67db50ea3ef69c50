// The system's resolver configuration: which DNS servers it asks, and its own domain. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

struct ResolverConfig {
  std::vector<std::string> servers;  // addresses, in the order of the configuration
  std::string domain;                // without a dot at its end
  std::vector<std::string> search;   // likewise; `domain` is the first
  int ndots = 1;                     // a name with so many dots is asked for as it is at first
  int timeout = 0;                   // seconds for a try; 0: not set
  int attempts = 0;                  // rounds through the servers; 0: not set
  bool rotate = false;               // the servers take turns in being the first
  bool readable = false;             // there is a configuration to read
};

/// Reads the text of a resolv.conf: every "nameserver" line that holds an address; the last of
/// "domain" and "search"; "options" as far as they are named above, within the system's limits. As in the system's resolver a keyword must begin its
/// line, "#" and ";" begin a comment, and what follows the word is ignored.
ResolverConfig ParseResolverConfig(std::string_view text);

/// Reads the system's configuration.
ResolverConfig ReadResolverConfig();

/// A number that changes when the system's configuration does.
std::uint64_t ResolverConfigStamp();

/// The same of a system that keeps it in files. Where the first names only the local stub of
/// systemd-resolved, the servers behind the stub come from the file that this keeps, and the domain
/// too if it has one.
ResolverConfig ReadResolverFiles();
std::uint64_t ResolverFilesStamp();

}  // namespace netro
