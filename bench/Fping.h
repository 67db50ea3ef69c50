// fping, the peer of the pings: a program that is run several times for one measurement.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "bench/Measure.h"

namespace netro::bench {

/// Its path; empty when it is not installed.
std::string FindFping();

/// Has fping ping each target once, with these further options; returns an error text, also when
/// not as many answer. The figures are those of the process less what it takes for the first target
/// alone, since starting a program is not what is compared. The note is of one more run, whose
/// times it writes down.
std::string RunFping(const std::vector<std::string>& options,
                     const std::vector<std::string>& targets, std::size_t answering,
                     Stopwatch& watch);

/// What a row says about round trips.
std::string NoteRoundTrips(std::vector<int> microseconds);

}  // namespace netro::bench
