// The servers that scenarios of several groups use. They live as long as the program.
#pragma once

#include <string>

namespace netro::torture {

/// A DNS server that knows every name as 127.0.0.1 and every domain's exchanger; for DNSURL.
std::string NameServerUrl();
int NameServerPort();

}  // namespace netro::torture
