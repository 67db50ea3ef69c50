// Which of the system's DNS servers answer: the list that a lookup without servers of its own uses.
// Runs on the caller's thread, within a blocking call.
#pragma once

#include <cstdint>
#include <string>

#include "socket/Wait.h"

namespace netro {

/// The configured servers that answer an echo, joined with commas. All are asked at once; the wait
/// ends when all have answered, after half a second, or with the mark. Blocks, keeping the loop
/// alive.
///
/// The whole list is returned where nobody answers or the system allows no echo: a silent server
/// may well know names. `complete` is false when the result should not be kept: the wait was
/// cancelled (the whole list is returned), or no server is configured (the list is empty).
std::string DiscoverServerList(const CancelMark& mark, bool& complete);

/// The same, unless another thread has found it out for the configuration of this stamp.
std::string SharedServerList(const CancelMark& mark, std::uint64_t stamp, bool& complete);

}  // namespace netro
