// Texts that nobody else has: boundaries and message ids. Thread: any.
#pragma once

#include <cstddef>
#include <string>

namespace netro {

/// Digits and letters, each drawn with equal chance.
std::string RandomText(std::size_t length);

}  // namespace netro
