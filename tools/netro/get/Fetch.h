// One URL of "netro get": where its body goes, how it is fetched, and what came. Thread: the
// loop's.
#pragma once

#include <string>
#include <vector>

#include "get/GetOptions.h"
#include "get/HttpResult.h"
#include "terminal/ProgressLines.h"

namespace netro::tool {

struct Fetch {
  std::string url;
  std::string label;  // its name beside others; empty for the only one
  std::string file;   // for the body; empty: standard output
  HttpResult result;  // a cancelled one until it has ended
};

/// One for each URL. Throws UsageError.
std::vector<Fetch> PlanFetches(const GetOptions& options);

/// Fetches the URL; a line shows how far it is. Blocks.
void Perform(Fetch& fetch, const GetRequest& request, ProgressLines& lines);

}  // namespace netro::tool
