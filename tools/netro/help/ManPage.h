// Man pages, from the option tables. Thread: any.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "help/OptionText.h"

namespace netro::tool {

/// The page of texts[index], for section 1, in the language of man(7).
std::string ManPage(const std::vector<CommandText>& texts, std::size_t index);

}  // namespace netro::tool
