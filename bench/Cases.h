// The list of benchmarks: each case is registered with Google Benchmark and keeps its own figures
// for the table of ratios at the end.
#pragma once

#include <string>
#include <vector>

#include "bench/Measure.h"

namespace netro::bench {

struct Case {
  std::string name;     ///< what is done; the same for the libraries that are compared
  std::string library;  ///< who does it
  std::string unit;     ///< what is counted, in the plural
  double units = 1;     ///< how many of them one run does
  /// The case that this one is set against: "name/library"; empty when it stands alone.
  std::string against;
  Work work;
  std::vector<Figures> runs = {};

  std::string Id() const { return name + "/" + library; }
};

/// Adds a case. All are added before the first one runs.
void AddCase(Case added);

/// Prints the best figures of all cases that have run, the largest peak of memory, and the ratios.
void PrintTable();

}  // namespace netro::bench
