// The door to "netro trace".
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

CommandRun SetUpTrace(CLI::App& options);

}  // namespace netro::tool
