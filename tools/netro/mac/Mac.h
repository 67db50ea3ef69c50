// The door to "netro mac".
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

CommandRun SetUpMac(CLI::App& options);

}  // namespace netro::tool
