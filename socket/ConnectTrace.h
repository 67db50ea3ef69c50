// Who shows how a connection comes about is told its steps: "lookup", "attempt", "failed".
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace netro {

/// Called on the socket's thread, from inside its events; it must neither wait nor delete.
using ConnectTrace = std::function<void(std::string_view step, const std::string& detail)>;

}  // namespace netro
