// The door to "netro get".
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

CommandRun SetUpGet(CLI::App& options);

}  // namespace netro::tool
