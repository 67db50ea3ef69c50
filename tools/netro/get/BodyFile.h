// The files that bodies are saved to. Thread: any one.
#pragma once

#include <string>

#include "get/HttpResult.h"

namespace netro::tool {

/// True when the library itself may write `file`. It replaces the file, which would be wrong for a
/// device, a pipe or a link; there the body is copied instead.
bool CanBeReplaced(const std::string& file);

/// Makes sure that the body stands in the file that the user named, also where it cannot be
/// replaced. Throws std::system_error.
void SaveBody(const std::string& file, const HttpResult& result);

}  // namespace netro::tool
