// Standard input as the body of a request. Thread: the loop's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace netro::tool {

/// An HTTPBodyFunction: waits for input as the library waits for a peer, so that the loop goes on
/// and Ctrl-C ends it.
std::ptrdiff_t ReadStandardInput(std::span<std::uint8_t> room);

}  // namespace netro::tool
