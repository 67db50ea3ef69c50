#include "diag/WatchReportText.h"

#include "diag/WatchShown.h"
#include "support/DateText.h"
#include "support/JsonText.h"

namespace netro {
namespace {

std::string DateOrNull(Date date) { return date == 0 ? "null" : JsonText(DateToText(date)); }

}  // namespace

const char* WatchReportWord(const WatchReport& report) {
  switch (report.kind) {
    case WatchReport::Down:
      return "down";
    case WatchReport::Up:
      return "up";
    case WatchReport::Unreachable:
      return "unreachable";
    case WatchReport::Flapping:
      return "flapping";
    case WatchReport::Settled:
      return "settled";
    case WatchReport::Reminder:
      break;
  }
  return "still down";
}

std::string WatchReportSubject(const WatchReport& report, const WatchSettings& settings) {
  if (report.kind == WatchReport::Down) {
    return FillWatchText(settings.downSubject, settings, report.facts);
  }
  if (report.kind == WatchReport::Up) {
    return FillWatchText(settings.upSubject, settings, report.facts);
  }
  const std::string word = WatchReportWord(report);
  return report.facts.senderHostName + ": " + report.facts.name + " is " + word;
}

std::string WatchReportText(const WatchReport& report, const WatchSettings& settings) {
  if (report.kind == WatchReport::Down) {
    return FillWatchText(settings.downActionMsg, settings, report.facts);
  }
  if (report.kind == WatchReport::Up) {
    return FillWatchText(settings.upActionMsg, settings, report.facts);
  }
  std::string text = WatchReportSubject(report, settings);
  if (report.kind == WatchReport::Unreachable) text += ": it is behind " + report.cause;
  if (report.since != 0) text += ", since " + DateToText(report.since);
  text += '.';
  if (!report.facts.errorDump.empty()) text += " " + report.facts.errorDump;
  return text;
}

std::string WatchReportJson(const WatchReport& report) {
  const std::string time = report.milliSeconds < 0 ? "null" : std::to_string(report.milliSeconds);
  return "{\"state\":" + JsonText(WatchReportWord(report)) +
         ",\"name\":" + JsonText(report.facts.name) +
         ",\"host\":" + JsonText(WithoutUserInfo(report.facts.host)) +
         ",\"time\":" + DateOrNull(report.date) + ",\"since\":" + DateOrNull(report.since) +
         ",\"ms\":" + time + ",\"failure\":" + JsonText(report.facts.errorDump) +
         ",\"watcher\":" + JsonText(report.facts.senderHostName) + "}";
}

}  // namespace netro
