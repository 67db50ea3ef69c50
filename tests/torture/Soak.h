// All scenarios side by side, a task each on this thread, while the connections of each are cut,
// reset or fall silent at random, calls are cancelled from another thread, and objects are deleted
// in events. In ten rounds of the same length; behind each the blocks of memory, descriptors and
// threads that are left are counted, and must be as many as behind the second one.
#pragma once

#include <chrono>
#include <vector>

#include "Scenario.h"

namespace netro::torture {

/// Prints a line for each round, and what went wrong; returns 0 when nothing did.
int Soak(std::vector<Scenario> scenarios, std::chrono::seconds time);

}  // namespace netro::torture
