// "netro get": HTTP requests with HTTPCls.

#include "get/Get.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "get/Fetch.h"
#include "get/GetOptions.h"
#include "get/GetOutput.h"
#include "get/Perform.h"
#include "terminal/Batch.h"
#include "terminal/ProgressLines.h"

namespace netro::tool {
namespace {

/// "-o -" is standard output, which is the default.
void Normalise(GetOptions& options) {
  if (options.output == "-") options.output.clear();
}

/// What stands below the lines of several transfers.
std::string Footer(std::size_t ended, std::size_t all) {
  return all < 2 ? "" : std::to_string(ended) + " of " + std::to_string(all) + " ended";
}

int RunGet(GetOptions& options) {
  Normalise(options);
  const GetRequest request = ReadGetRequest(options);
  std::vector<Fetch> fetches = PlanFetches(options, request.way);
  GetOutput output(options);
  ProgressLines lines;
  std::size_t ended = 0;
  lines.Footer(Footer(ended, fetches.size()));
  Batch batch(options.way.parallel);
  const auto fetch = [&](std::size_t i) {
    Perform(fetches[i], options, request, lines, [&batch] { return batch.IsStopped(); });
    lines.Footer(Footer(++ended, fetches.size()));
  };
  const auto show = [&](std::size_t i) {
    bool isRead = true;
    lines.MakeRoomFor([&] { isRead = output.Show(fetches[i]); });
    fetches[i].result = {};  // which may hold a large body
    return isRead;
  };
  const std::size_t begun = batch.Run(fetches.size(), fetch, show);
  output.Finish(std::span(fetches).subspan(begun));
  const bool saved = SaveCookies(request.logins, options.login);
  return output.AreAllGood() && saved ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpGet(CLI::App& options) {
  const auto values = std::make_shared<GetOptions>();
  DeclareGetOptions(options, *values);
  return [values] { return RunGet(*values); };
}

}  // namespace netro::tool
