// Result codes of the DNS client that are not errors of a socket; their texts are messages.
#pragma once

#include <cstdint>

namespace netro {

enum DnsResult : std::int32_t {
  kDnsSuccess = 0,
  kDnsFormatError = 1,
  kDnsServerFailure = 2,
  kDnsNameError = 3,  // a server's own code, like all up to 21
  kDnsNotImplemented = 4,
  kDnsBadVersion = 16,
  kDnsNoRecords = 22,
  kDnsNoDomain = 51,
  kDnsNoServer = 52,
  kDnsCutShort = 56,
  kDnsNothingToDo = 10130,
  kDnsNullMx = 10131,  // of mail: the domain takes none (RFC 7505)
};

}  // namespace netro
