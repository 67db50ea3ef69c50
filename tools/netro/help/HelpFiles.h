// The files that a package installs beside the command. Thread: any.
#pragma once

#include <filesystem>
#include <vector>

#include "help/OptionText.h"

namespace netro::tool {

/// Writes the man pages and the completions of bash, zsh and fish into the folders below `share`
/// where systems look for them. On failure it says on standard error which file it was.
bool WriteHelpFiles(const std::vector<CommandText>& texts, const std::filesystem::path& share);

}  // namespace netro::tool
