// Numbers that nobody can guess, from the system. Any thread; never throws.
#pragma once

#include <cstdint>

namespace netro {

std::uint32_t RandomNumber();

}  // namespace netro
