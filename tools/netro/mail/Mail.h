// The door to "netro mail" and "netro check-address".
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

CommandRun SetUpMail(CLI::App& options);
CommandRun SetUpCheckAddress(CLI::App& options);

}  // namespace netro::tool
