// The JSON objects of the subcommands on standard output. Thread: any.
#pragma once

#include <nlohmann/json.hpp>

#include "terminal/Terminal.h"

namespace netro::tool {

/// On a terminal only ASCII, since UTF-8 has control characters too. What is no UTF-8 is replaced.
inline void PrintObject(const nlohmann::ordered_json& object) {
  Print(object.dump(2, ' ', IsTerminal(Stream::Output),
                    nlohmann::ordered_json::error_handler_t::replace) +
        "\n");
}

}  // namespace netro::tool
