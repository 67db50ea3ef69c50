// The door to "netro dns".
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

CommandRun SetUpDns(CLI::App& options);

}  // namespace netro::tool
