// Asking with QueryDNSCLS, one object for all repetitions.

#include <netro/QueryDNSCLS.h>

#include "bench/DnsQueries.h"

namespace netro::bench {

std::string NetroQueries(const DnsQueries& queries, Stopwatch& watch) {
  QueryDNSCLS dns;
  dns.DNSServer("127.0.0.1");
  dns.DNSPort(queries.port);
  dns.Domain(queries.name);
  dns.QueryType(static_cast<QueryEnum>(queries.type));
  dns.UseUDP(!queries.tcp);
  const bool transfer = queries.type == TYPE_AXFR;
  watch.Start();
  for (int i = 0; i < queries.repetitions; ++i) {
    const std::int16_t result = transfer ? dns.QueryZone() : dns.QueryDNS();
    if (result != 0) {
      return "error " + std::to_string(result) + ", " + dns.LastErrMsg();
    }
    if (dns.CountAN() != queries.records) {
      return "a reply of " + std::to_string(dns.CountAN()) + " records";
    }
  }
  watch.Stop();
  return {};
}

}  // namespace netro::bench
