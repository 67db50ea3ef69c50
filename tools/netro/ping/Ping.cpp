// "netro ping": echoes of any number of hosts with EchoCls.

#include "ping/Ping.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "ping/PingHosts.h"
#include "ping/PingOptions.h"
#include "ping/PingOutput.h"
#include "ping/Pinger.h"
#include "terminal/EchoText.h"
#include "terminal/Interrupt.h"
#include "terminal/Stopwatch.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

double Ask(Pinger& pinger, const PingOptions& options) {
  const InterruptGuard guard(pinger);
  const PingProgress progress(pinger, options);
  const Stopwatch watch;
  pinger.Run();
  return watch.Seconds();
}

int RunPing(PingOptions options) {
  CheckPingOptions(options);
  options.hosts = PingHosts(options);
  PingPrinter printer(options);
  Pinger pinger(options, printer);
  const double seconds = Ask(pinger, options);
  if (pinger.IsForbidden()) ShowMessage(EchoForbiddenText());
  if (options.json) {
    PrintPingJson(pinger, options, seconds);
  } else if (options.jsonLines) {
    PrintJsonEnd(pinger, options, seconds);
  } else if (!options.alive) {
    PrintPingStatistics(pinger, options);
  }
  return pinger.HaveAllAnswered() ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpPing(CLI::App& options) {
  const auto values = std::make_shared<PingOptions>();
  DeclarePingOptions(options, *values);
  return [values] { return RunPing(*values); };
}

}  // namespace netro::tool
