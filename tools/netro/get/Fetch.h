// One URL of "netro get": where its body goes, and what came. Thread: the loop's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "get/GetOptions.h"
#include "get/HttpResult.h"
#include "terminal/ProxyOption.h"

namespace netro::tool {

struct Fetch {
  std::string url;
  std::string label;  // its name beside others, without password; empty for the only one
  std::string file;   // for the body; empty: standard output
  bool isStreamed = false;  // the body is printed while it comes
  Proxy proxy;
  std::int32_t attempts = 0;
  HttpResult result;  // a cancelled one until it has ended
};

/// One for each URL. Throws UsageError.
std::vector<Fetch> PlanFetches(const GetOptions& options, const Way& way);

/// What becomes of a fetch that the user has ended.
HttpResult CancelledResult();

}  // namespace netro::tool
