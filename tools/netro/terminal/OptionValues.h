// Reading of option values that several subcommands have. Thread: any.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

namespace netro::tool {

/// The content of a file; "-" is standard input. Throws UsageError, which names `option`.
std::string ReadInput(const std::string& option, const std::string& name);

/// Takes "Name: value" of --header apart. Throws UsageError.
std::pair<std::string, std::string> ReadHeader(const std::string& line);

/// Throw UsageError when the value is not in its range; the longest time is an hour.
void CheckRange(const std::string& option, std::int32_t value, std::int32_t least,
                std::int32_t most);
void CheckSeconds(const std::string& option, double seconds, double shortest = 0.01);

/// Throws UsageError unless a limit has 0.01 to `longest` seconds, or is 0 where that means none.
enum class NoLimit { Refused, Zero };
void CheckLimit(const std::string& option, double seconds, double longest,
                NoLimit zero = NoLimit::Refused);

/// As the library takes it.
std::chrono::milliseconds TimeOf(double seconds);

}  // namespace netro::tool
