// The options -4 and -6.

#include "terminal/FamilyOptions.h"

#include <CLI/CLI.hpp>

namespace netro::tool {

void DeclareFamilyOptions(CLI::App& options, AddressPreferenceEnum& preference,
                          const std::string& group) {
  const auto flag = [&](const char* names, AddressPreferenceEnum chosen, const char* text) {
    return options
        .add_flag_callback(
            names, [&preference, chosen] { preference = chosen; }, text)
        ->group(group);
  };
  CLI::Option* v4 = flag("-4,--ipv4", onlyIPv4, "Use IPv4 only");
  flag("-6,--ipv6", onlyIPv6,
       preference == preferIPv6
           ? "Use IPv6 only; if neither is given, both"
           : "Use IPv6 only; if neither is given, where there is no IPv4 address")
      ->excludes(v4);
}

}  // namespace netro::tool
