// How "netro dns" shows what it got.
#pragma once

#include "dns/DnsOptions.h"
#include "dns/DnsResult.h"

namespace netro::tool {

/// Prints the reply as a zone file; nothing when there is none, or none worth showing.
void PrintDnsReply(const QueryDNSCLS& query, const DnsResult& result, const DnsRequest& request);

/// Prints the JSON object.
void PrintDnsJson(const QueryDNSCLS& query, const DnsResult& result);

/// Says on standard error what went wrong.
void ExplainDnsResult(const QueryDNSCLS& query, const DnsResult& result, const DnsRequest& request);

}  // namespace netro::tool
