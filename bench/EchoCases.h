// Sockets: echo round trips beside Asio, and the cost of an event among many connections.
#pragma once

#include <cstdint>

namespace netro::bench {

/// Leaves out, by name, cases that need more than so many descriptors.
void AddEchoCases(std::uint64_t descriptors);

}  // namespace netro::bench
