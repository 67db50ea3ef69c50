// Asking with QueryDNSCLS, one object for all repetitions, or one for each task.

#include <netro/QueryDNSCLS.h>
#include <netro/SocketCls.h>

#include <memory>

#include "bench/DnsQueries.h"
#include "bench/Tasks.h"

namespace netro::bench {
namespace {

void Prepare(QueryDNSCLS& dns, const DnsQueries& queries) {
  dns.DNSServer("127.0.0.1");
  dns.DNSPort(queries.port);
  dns.Domain(queries.name);
  dns.QueryType(static_cast<QueryEnum>(queries.type));
  dns.UseUDP(!queries.tcp);
}

std::string AskOnce(QueryDNSCLS& dns, const DnsQueries& queries) {
  const std::int16_t result = queries.type == TYPE_AXFR ? dns.QueryZone() : dns.QueryDNS();
  if (result != 0) {
    return "error " + std::to_string(result) + ", " + dns.LastErrMsg();
  }
  if (dns.CountAN() != queries.records) {
    return "a reply of " + std::to_string(dns.CountAN()) + " records";
  }
  return {};
}

}  // namespace

std::string NetroQueries(const DnsQueries& queries, Stopwatch& watch) {
  QueryDNSCLS dns;
  Prepare(dns, queries);
  std::string error;
  watch.Start();
  for (int i = 0; i < queries.repetitions && error.empty(); ++i) {
    error = AskOnce(dns, queries);
  }
  watch.Stop();
  return error;
}

std::string NetroQueriesMany(const DnsQueries& queries, Stopwatch& watch) {
  watch.Start();
  std::string error = ShareOut(queries.inFlight, queries.repetitions, [&] {
    auto dns = std::make_unique<QueryDNSCLS>();
    Prepare(*dns, queries);
    return [dns = std::move(dns), &queries] { return AskOnce(*dns, queries); };
  });
  watch.Stop();
  return error;
}

std::string NetroLookups(const DnsQueries& queries, Stopwatch& watch) {
  int number = 0;
  watch.Start();
  std::string error = ShareOut(queries.inFlight, queries.repetitions, [&] {
    auto socket = std::make_unique<SocketCls>();
    socket->DNSURL("127.0.0.1:" + std::to_string(queries.port));
    return [&, socket = std::move(socket)]() -> std::string {
      const std::string host = "h" + std::to_string(++number) + '.' + queries.name;
      return socket->DNSLookup(host).empty() ? socket->DNSLastErrMsg() : std::string();
    };
  });
  watch.Stop();
  return error;
}

}  // namespace netro::bench
