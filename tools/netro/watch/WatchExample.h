// The settings file that "netro watch --example" prints.
#pragma once

namespace netro::tool {

extern const char* const kWatchExample;

}  // namespace netro::tool
