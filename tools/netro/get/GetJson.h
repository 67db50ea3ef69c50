// The JSON object of "netro get". Thread: the main one.
#pragma once

#include <nlohmann/json.hpp>

#include "get/Fetch.h"

namespace netro::tool {

/// Everything about a fetch, the body included, which is read or saved; that of an answer of 400 and
/// above only with `hasRefusals`. Throws std::system_error.
nlohmann::ordered_json JsonOf(const Fetch& fetch, bool hasRefusals);

}  // namespace netro::tool
