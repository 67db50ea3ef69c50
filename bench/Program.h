// A program that does the work to measure.
#pragma once

#include <string>
#include <vector>

namespace netro::bench {

struct ProgramRun {
  double seconds = 0;
  double cpuSeconds = 0;  ///< user and system time of the program alone
  int status = 0;         ///< its exit status; -1 when it did not come to one
};

/// Runs a program, by its path and arguments, until it ends. What it prints is dropped, and what it
/// says on standard error goes into a new file.
ProgramRun RunProgram(std::vector<std::string> words, const std::string& errorFile);

}  // namespace netro::bench
