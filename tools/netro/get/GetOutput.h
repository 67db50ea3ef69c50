// How "netro get" shows what it got.
#pragma once

#include "get/GetOptions.h"
#include "get/HttpResult.h"

namespace netro::tool {

/// True when the library itself may write `file`. It replaces the file, which would be wrong for a
/// device, a pipe or a link; there the body is copied instead. Throws UsageError for a folder.
bool CanBeReplaced(const std::string& file);

/// Prints header and body, or the JSON object, and says on standard error what went wrong.
void ShowResult(const HttpResult& result, const GetOptions& options);

}  // namespace netro::tool
