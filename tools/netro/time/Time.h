// The door to "netro time".
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

CommandRun SetUpTime(CLI::App& options);

}  // namespace netro::tool
