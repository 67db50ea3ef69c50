// How "netro mac" shows what it got.
#pragma once

#include "mac/MacQuery.h"

namespace netro::tool {

void PrintMac(const MacOptions& options, const MacResult& result);
void PrintMacJson(const MacOptions& options, const MacResult& result, double seconds);

/// Says on standard error what went wrong.
void ExplainMac(const MacOptions& options, const MacResult& result);

}  // namespace netro::tool
