// Small replies over UDP show the cost of a query, replies that fill a TCP message that of a
// record. Transfers of growing size are set against the smallest, for their cost per record must
// stay the same.

#include "bench/DnsCases.h"

#include <cstdio>
#include <string>

#include "bench/Cases.h"
#include "bench/DnsQueries.h"
#include "bench/DnsReplies.h"

namespace netro::bench {
namespace {

constexpr int kSmallQueries = 20'000;
constexpr int kManyQueries = 50'000;
constexpr int kLargeQueries = 300;

void AddNetro(const std::string& name, const std::string& unit, double units,
              const std::string& against, const DnsQueries& queries) {
  AddCase({name, "netro", unit, units, against,
           [queries](Stopwatch& watch) { return NetroQueries(queries, watch); }});
}

/// Adds the case for netro, and for c-ares in front of it as what it is set against.
void AddBesideAres(const std::string& name, const std::string& unit, double units,
                   const DnsQueries& queries) {
#ifdef NETRO_HAVE_CARES
  AddCase({name, "c-ares", unit, units, "",
           [queries](Stopwatch& watch) { return AresQueries(queries, watch); }});
#endif
  AddNetro(name, unit, units, name + "/c-ares", queries);
}

void AddManyInFlight(const DnsServers& servers) {
  DnsQueries queries;
  queries.port = servers.UdpPort();
  queries.repetitions = kManyQueries;
  queries.inFlight = 64;
  const std::string name = "DNS query, 64 in flight";
#ifdef NETRO_HAVE_CARES
  AddCase({name, "c-ares", "queries", kManyQueries, "",
           [queries](Stopwatch& watch) { return AresQueries(queries, watch); }});
#endif
  AddCase({name, "netro", "queries", kManyQueries, name + "/c-ares",
           [queries](Stopwatch& watch) { return NetroQueriesMany(queries, watch); }});
}

/// Lookups by name do more than a query: each has a socket, a port and an identifier of its own.
/// They are set against the queries of c-ares.
void AddLookups(const DnsServers& servers) {
  DnsQueries queries;
  queries.port = servers.UdpPort();
  queries.name = "bench.test";
  queries.repetitions = kSmallQueries;
  const auto add = [](const std::string& name, const DnsQueries& what, const std::string& against) {
    AddCase({name, "netro", "names", static_cast<double>(what.repetitions), against,
             [what](Stopwatch& watch) { return NetroLookups(what, watch); }});
  };
  add("lookup by name", queries, "DNS query over UDP/c-ares");
  queries.inFlight = 64;
  add("lookup by name, 64 in flight", queries, "DNS query, 64 in flight/c-ares");
  queries.port = servers.SlowPort();
  queries.repetitions = queries.inFlight = 500;
  add("lookup of 500 names of 30 ms at once", queries, "");
}

DnsQueries LargeQueries(const DnsServers& servers, std::uint16_t type) {
  DnsQueries queries;
  queries.port = servers.TcpPort();
  queries.type = type;
  queries.tcp = true;
  queries.repetitions = kLargeQueries;
  queries.records = ManyRecords(type).count;
  return queries;
}

/// c-ares reads replies of one type only, so the mixed one is set against netro's A records.
void AddLargeReplies(const DnsServers& servers) {
  const auto units = [](const DnsQueries& queries) {
    return static_cast<double>(queries.records) * queries.repetitions;
  };
  const std::string name = "DNS reply of 64 KB, ";
  const DnsQueries addresses = LargeQueries(servers, kTypeA);
  AddBesideAres(name + "A", "records", units(addresses), addresses);
  const DnsQueries mailServers = LargeQueries(servers, kTypeMx);
  AddBesideAres(name + "MX", "records", units(mailServers), mailServers);
  const DnsQueries mixed = LargeQueries(servers, kTypeAll);
  AddNetro(name + "mixed", "records", units(mixed), name + "A/netro", mixed);
}

void AddTransfers(const DnsServers& servers) {
  const auto label = [](int hosts) { return "transfer, " + std::to_string(hosts) + " records"; };
  constexpr int kFewest = 10'000;
  for (const int hosts : {kFewest, 100'000, 1'000'000}) {
    DnsQueries queries;
    queries.port = servers.TcpPort();
    queries.name = DnsServers::ZoneName(hosts);
    queries.type = kTypeAxfr;
    queries.tcp = true;
    queries.records = hosts + 2 * ZoneStart().count;
    AddNetro(label(hosts), "records", queries.records,
             hosts == kFewest ? "" : label(kFewest) + "/netro", queries);
  }
}

}  // namespace

void AddDnsCases(const DnsServers& servers) {
#ifndef NETRO_HAVE_CARES
  std::fprintf(stderr, "left out: c-ares\n");
#endif
  DnsQueries small;
  small.port = servers.UdpPort();
  small.repetitions = kSmallQueries;
  AddBesideAres("DNS query over UDP", "queries", kSmallQueries, small);
  AddManyInFlight(servers);
  AddLookups(servers);
  AddLargeReplies(servers);
  AddTransfers(servers);
}

}  // namespace netro::bench
