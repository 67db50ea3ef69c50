// The word that somebody who mistyped another one may have meant. Thread: any.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace netro::tool {

/// The one of `known` that the fewest changes of letters make of `word`; empty when that would be a
/// change of more than a third of them, rounded up.
std::string Nearest(std::string_view word, const std::vector<std::string>& known);

}  // namespace netro::tool
