// The door to "netro watch".
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

CommandRun SetUpWatch(CLI::App& options);

}  // namespace netro::tool
