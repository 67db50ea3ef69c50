// Programs that are started and left to themselves. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

/// Starts a program without a shell, found by PATH when its name holds no "/". It reads `input`
/// from its standard input (a file, also as /dev/stdin), and what it prints is thrown away. Nobody
/// waits for it, and it leaves no zombie. Returns 0, or the error number (20000 plus the system's)
/// of why it could not be started.
std::int32_t StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                          std::string_view input = {});

}  // namespace netro
