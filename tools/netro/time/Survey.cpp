// "netro time A B C": several servers at the same time with TimeSurveyCls.

#include "time/Survey.h"

#include <netro/TimeSurveyCls.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "terminal/Command.h"
#include "terminal/Encoding.h"
#include "terminal/FailureText.h"
#include "terminal/Interrupt.h"
#include "terminal/JsonOutput.h"
#include "terminal/OptionValues.h"
#include "terminal/Stopwatch.h"
#include "terminal/Terminal.h"
#include "time/TimeText.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

const char* StateName(TimeServerStateEnum state) {
  switch (state) {
    case TimeServerStateEnum::Agrees:
      return "agrees";
    case TimeServerStateEnum::FalseTicker:
      return "false ticker";
    case TimeServerStateEnum::LeftOut:
      return "left out";
    case TimeServerStateEnum::Unjudged:
      break;
  }
  return "unjudged";
}

std::string Seconds(const char* format, double seconds) {
  char text[64];
  std::snprintf(text, sizeof text, format, seconds);
  return text;
}

std::string Bounded(double offset, double bound) {
  return Seconds("%+.6f s", offset) + Seconds(" +/- %.6f s", bound);
}

std::string Fact(const TimeServerReport& report) {
  if (report.State == TimeServerStateEnum::LeftOut) return report.Reason;
  return Bounded(report.Offset, report.Bound) + Seconds(", delay %.6f s", report.Delay) +
         ", stratum " + std::to_string(report.Stratum) + ", " + std::to_string(report.Samples) +
         (report.Samples == 1 ? " sample" : " samples") +
         (report.KissCode.empty() ? "" : ", then the kiss code \"" + report.KissCode + "\"");
}

void PrintColumns(std::string label, std::size_t width, std::string state,
                  const std::string& text) {
  label.resize(std::max(label.size(), width), ' ');
  state.resize(14, ' ');
  Print(Styled(Style::Dim, ShownText(label)) + "  " + state + ShownText(text) + "\n");
}

void PrintLines(const TimeSurveyCls& survey) {
  std::size_t width = 0;
  for (const auto& report : survey.Reports()) width = std::max(width, report.Server.size());
  for (const auto& report : survey.Reports()) {
    PrintColumns(report.Server, width, StateName(report.State), Fact(report));
  }
  if (survey.LastErr() != 0) return;
  const bool ahead = survey.Offset() >= 0;
  Print(Styled(Style::Bold, "offset " + Bounded(survey.Offset(), survey.Bound())) +
        (ahead ? " (the true time is ahead of this clock)\n"
               : " (the true time is behind this clock)\n"));
}

Json ToJson(const TimeServerReport& report) {
  const auto text = [](const std::string& value) { return value.empty() ? Json() : Json(value); };
  Json object = {{"server", report.Server},
                 {"address", text(report.Address)},
                 {"state", StateName(report.State)},
                 {"reason", text(report.Reason)},
                 {"error_number", report.LastErr},
                 {"samples", report.Samples}};
  const bool told = report.Samples > 0;
  const auto number = [&](const char* key, double value) {
    object[key] = told ? Json(value) : Json();
  };
  number("offset", report.Offset);
  number("bound", report.Bound);
  number("delay", report.Delay);
  number("root_delay_seconds", report.RootDelay);
  number("root_dispersion_seconds", report.RootDispersion);
  object["stratum"] = told ? Json(report.Stratum) : Json();
  object["leap"] = told ? Json(LeapName(report.LeapIndicator)) : Json();
  object["reference"] = text(report.ReferenceID);
  object["kiss_code"] = text(report.KissCode);
  return object;
}

void PrintSurveyJson(const TimeSurveyCls& survey, double seconds) {
  const bool good = survey.LastErr() == 0;
  Json object = {{"ok", good},
                 {"error", {{"number", survey.LastErr()}, {"text", survey.LastErrMsg()}}},
                 {"seconds", seconds},
                 {"offset", good ? Json(survey.Offset()) : Json()},
                 {"bound", good ? Json(survey.Bound()) : Json()},
                 {"servers", Json::array()}};
  for (const auto& report : survey.Reports()) object["servers"].push_back(ToJson(report));
  PrintObject(object);
}

}  // namespace

int RunSurvey(const SurveyRequest& request) {
  TimeSurveyCls survey;
  survey.Servers(request.servers);
  survey.Samples(request.samples);
  survey.Timeout(TimeOf(request.connection.timeout));
  survey.TotalTimeout(TimeOf(request.total));
  survey.DNSURL(request.connection.dns);
  survey.AddressPreference(request.connection.preference);
  const Stopwatch watch;
  {
    const InterruptGuard guard(survey);
    survey.Survey();
  }
  if (request.json) {
    PrintSurveyJson(survey, watch.Seconds());
  } else {
    PrintLines(survey);
  }
  if (survey.LastErr() == 0) return Success;
  ShowMessage(FailureText("cannot tell the time", survey.LastErr(), survey.LastErrMsg()));
  return QueryFailed;
}

}  // namespace netro::tool
