// The system's hosts file: names that need no DNS. Any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Address.h"

namespace netro {

/// Look through the text of a hosts file: lines of an address, its name and its aliases; "#" begins
/// a comment. Only lines with an address in its full form count. Linear in the text.
///
/// The addresses of a name or alias, whatever its case, in the order of the lines, each once; a dot
/// at the end of `name` is ignored.
std::vector<IpAddress> FindHostAddresses(std::string_view hosts, std::string_view name);
/// The name, not an alias, on the first line of an address; empty when there is none.
std::string FindHostName(std::string_view hosts, const IpAddress& address);

/// The names on the lines of a name, without itself, each once.
std::vector<std::string> FindHostAliases(std::string_view hosts, std::string_view name);

/// The same from the system's file. "localhost" and all names below it are 127.0.0.1 and ::1, and
/// the other way round, also when the file does not say so (RFC 6761, section 6.3). `isShort` is
/// set when the program lacks memory or descriptors to read the file: what it says is not known.
std::vector<IpAddress> HostsFileAddresses(std::string_view name, bool* isShort = nullptr);
std::string HostsFileName(const IpAddress& address, bool* isShort = nullptr);
std::vector<std::string> HostsFileAliases(std::string_view name);

}  // namespace netro
