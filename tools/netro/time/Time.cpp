// "netro time": one question with QueryTimeCLS, or a survey of several servers.

#include "time/Time.h"

#include <netro/QueryTimeCLS.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "terminal/Interrupt.h"
#include "terminal/OptionValues.h"
#include "terminal/Stopwatch.h"
#include "time/Survey.h"
#include "time/TimeOptions.h"
#include "time/TimeOutput.h"

namespace netro::tool {
namespace {

void Prepare(QueryTimeCLS& query, const TimeOptions& options, const TimeRequest& request) {
  query.Server(request.host);
  query.Port(request.port);
  query.UseUDP(!request.tcp);
  query.SNTPVersion(request.version);
  query.SNTPReferenceName(options.referenceName);
  query.SNTPRandomFraction(true);
  query.Timeout(TimeOf(options.connection.timeout));
  UseConnection(query, options.connection, request.proxy);
}

double Ask(QueryTimeCLS& query) {
  const InterruptGuard guard(query);
  const Stopwatch watch;
  query.QueryTime();
  return watch.Seconds();
}

int RunTime(const TimeOptions& options) {
  if (IsSurvey(options)) return RunSurvey(ReadSurveyRequest(options));
  const TimeRequest request = ReadTimeRequest(options);
  QueryTimeCLS query;
  Prepare(query, options, request);
  const double seconds = Ask(query);
  if (options.json) {
    PrintTimeJson(query, request, seconds);
  } else {
    PrintTime(query, request);
  }
  ExplainTime(query, request, options.connection.timeout);
  return IsGoodTime(query) ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpTime(CLI::App& options) {
  const auto values = std::make_shared<TimeOptions>();
  DeclareTimeOptions(options, *values);
  return [values] { return RunTime(*values); };
}

}  // namespace netro::tool
