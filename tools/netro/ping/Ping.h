// The door to "netro ping".
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

CommandRun SetUpPing(CLI::App& options);

}  // namespace netro::tool
