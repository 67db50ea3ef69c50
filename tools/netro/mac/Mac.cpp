// "netro mac": MAC addresses with NetBIOSCls.

#include "mac/Mac.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "mac/MacOptions.h"
#include "mac/MacOutput.h"
#include "mac/MacQuery.h"
#include "terminal/Interrupt.h"
#include "terminal/Stopwatch.h"

namespace netro::tool {
namespace {

MacResult Ask(const MacOptions& options) {
  MacQuery query;
  const InterruptGuard guard(query);
  return query.Ask(options);
}

int RunMac(const MacOptions& options) {
  CheckMacOptions(options);
  const Stopwatch watch;
  const MacResult result = Ask(options);
  if (options.json) {
    PrintMacJson(options, result, watch.Seconds());
  } else {
    PrintMac(options, result);
  }
  ExplainMac(options, result);
  return result.error == 0 ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpMac(CLI::App& options) {
  const auto values = std::make_shared<MacOptions>();
  DeclareMacOptions(options, *values);
  return [values] { return RunMac(*values); };
}

}  // namespace netro::tool
