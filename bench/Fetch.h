// One way to say what to fetch, and the two libraries that do it.
#pragma once

#include <cstdint>
#include <string>

#include "bench/Measure.h"

namespace netro::bench {

struct Fetch {
  std::string url;
  std::uint64_t bodyBytes = 0;  ///< what must arrive
  std::string file = {};        ///< where to save the body; empty: in memory
  int repetitions = 1;          ///< each over a new connection
  int inFlight = 1;             ///< at the same time; for FetchMany
  bool keepFraming = false;     ///< leave the chunk framing in the body (netro only)
  int timeoutSeconds = 60;
  bool keepAlive = false;       ///< one connection for all repetitions of a task
  std::string trustFile = {};   ///< for https
  bool resumes = true;          ///< TLS sessions
};

/// Fetches and checks the number of bytes; returns an error text, empty when all went well.
std::string NetroFetch(const Fetch& fetch, Stopwatch& watch);
/// The same on one thread with several at the same time, into memory.
std::string NetroFetchMany(const Fetch& fetch, Stopwatch& watch);

/// The least that it can cost: system calls on one blocking connection, which is kept. For answers
/// of a few bytes.
std::string RawFetch(const Fetch& fetch, Stopwatch& watch);

#ifdef NETRO_HAVE_CURL
std::string CurlFetch(const Fetch& fetch, Stopwatch& watch);
std::string CurlFetchMany(const Fetch& fetch, Stopwatch& watch);
#endif

}  // namespace netro::bench
