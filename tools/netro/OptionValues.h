// Reading of option values that several subcommands have. Thread: any.
#pragma once

#include <string>
#include <utility>

namespace netro::tool {

/// The content of a file; "-" is standard input. Throws UsageError, which names `option`.
std::string ReadInput(const std::string& option, const std::string& name);

/// Takes "Name: value" of --header apart. Throws UsageError.
std::pair<std::string, std::string> ReadHeader(const std::string& line);

}  // namespace netro::tool
