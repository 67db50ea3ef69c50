// What tasks cost by themselves.
#pragma once

#include <cstdint>

namespace netro::bench {

/// `descriptors` is the number that a process may have open.
void AddTaskCases(std::uint64_t descriptors);

}  // namespace netro::bench
