// A date as text for people and programs. Thread: any.
#pragma once

#include <netro/Types.h>

#include <string>

namespace netro::tool {

/// "2026-11-21T10:45:00.000Z"
std::string IsoTime(Date date);

}  // namespace netro::tool
