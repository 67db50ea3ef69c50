// "netro doctor": walks up the layers to a host and names the one that is broken.
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

/// Declares the options of the subcommand.
CommandRun SetUpDoctor(CLI::App& options);

}  // namespace netro::tool
