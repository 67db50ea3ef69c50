// The door to "netro tour".
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

CommandRun SetUpTour(CLI::App& options);

}  // namespace netro::tool
