// The cache of name lookups: found entries per second, and saving and restoring it.
#pragma once

#include <string>

namespace netro::bench {

/// Files go to `folder`.
void AddLookupCases(const std::string& folder);

}  // namespace netro::bench
