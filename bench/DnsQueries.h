// One way to say what to ask a DNS server, and the two libraries that do it.
#pragma once

#include <cstdint>
#include <string>

#include "bench/Measure.h"

namespace netro::bench {

struct DnsQueries {
  std::uint16_t port = 0;  ///< of the server on loopback
  std::string name = "www.bench.test";
  std::uint16_t type = 1;
  bool tcp = false;
  int repetitions = 1;  ///< one after the other, each over a new socket
  int inFlight = 1;     ///< at the same time; for the functions that say so
  int records = 1;      ///< answers that each reply must hold
};

/// Asks, reads the records, and checks their number; returns an error text, empty when all went
/// well. AXFR is a zone transfer.
std::string NetroQueries(const DnsQueries& queries, Stopwatch& watch);
/// With several in flight on one thread.
std::string NetroQueriesMany(const DnsQueries& queries, Stopwatch& watch);
/// Looks up as many names below the name, with several in flight.
std::string NetroLookups(const DnsQueries& queries, Stopwatch& watch);

#ifdef NETRO_HAVE_CARES
/// For types A and MX; with several in flight on one channel.
std::string AresQueries(const DnsQueries& queries, Stopwatch& watch);
#endif

}  // namespace netro::bench
