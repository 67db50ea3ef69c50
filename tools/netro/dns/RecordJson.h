// A DNS record as a JSON object. Thread: any.
#pragma once

#include <netro/DNSCLS.h>

#include <nlohmann/json.hpp>

namespace netro::tool {

nlohmann::ordered_json ToJson(const DNSCLS& record);

}  // namespace netro::tool
