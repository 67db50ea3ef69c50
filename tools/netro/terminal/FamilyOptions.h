// The options -4 and -6. Thread: any.
#pragma once

#include <netro/AddressPreference.h>

#include <string>

namespace CLI {
class App;
}

namespace netro::tool {

/// `preference` stays as it is without them.
void DeclareFamilyOptions(CLI::App& options, AddressPreferenceEnum& preference,
                          const std::string& group);

}  // namespace netro::tool
