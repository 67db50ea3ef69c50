// The door to "netro whois".
#pragma once

#include "terminal/Command.h"

namespace netro::tool {

CommandRun SetUpWhoIs(CLI::App& options);

}  // namespace netro::tool
