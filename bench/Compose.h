// The same messages composed with SendMailCls and with GMime.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "bench/Measure.h"

namespace netro::bench {

/// Messages of a text and attachments, each composed with a new object until the whole of it is in
/// memory, or in a file.
struct Compose {
  std::string text;
  std::vector<std::string> files;
  std::size_t leastSize = 0;  ///< of each message in bytes
  int repetitions = 1;
  std::string output;  ///< the file; empty: memory
};

std::string NetroCompose(const Compose& compose, Stopwatch& watch);
std::string GMimeCompose(const Compose& compose, Stopwatch& watch);

}  // namespace netro::bench
