// Echo round trips over many connections on one thread, and the two libraries that make them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "bench/Measure.h"

namespace netro::bench {

inline constexpr std::size_t kMessageBytes = 64;

struct Echo {
  int idle = 0;        ///< connections that wait for data all the time
  int busy = 1;        ///< connections that send a message as soon as the last one came back
  int roundTrips = 0;  ///< over all busy connections
};

/// Opens all connections to the port, then measures the round trips; returns an error text, empty
/// when all went well.
std::string NetroEcho(const Echo& echo, std::uint16_t port, Stopwatch& watch);

#ifdef NETRO_HAVE_ASIO
std::string AsioEcho(const Echo& echo, std::uint16_t port, Stopwatch& watch);
#endif

}  // namespace netro::bench
