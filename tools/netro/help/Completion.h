// Completion scripts for shells, from the option tables. Thread: any.
#pragma once

#include <string>
#include <vector>

#include "help/OptionText.h"

namespace netro::tool {

std::string BashCompletion(const std::vector<CommandText>& texts);
std::string ZshCompletion(const std::vector<CommandText>& texts);
std::string FishCompletion(const std::vector<CommandText>& texts);

}  // namespace netro::tool
