// How "netro time" shows what it got: lines for people.

#include "time/TimeOutput.h"

#include <cmath>
#include <cstdio>
#include <string>

#include "terminal/Encoding.h"
#include "terminal/FailureText.h"
#include "terminal/IsoTime.h"
#include "terminal/Terminal.h"
#include "time/TimeText.h"

namespace netro::tool {
namespace {

constexpr std::size_t kLabelWidth = 17;

void PrintLine(std::string label, const std::string& text) {
  label.resize(kLabelWidth, ' ');
  Print(Styled(Style::Dim, label) + ShownText(text) + "\n");
}

/// "0.000123 s"
std::string Seconds(double seconds) {
  char text[64];
  std::snprintf(text, sizeof text, "%.6f s", seconds);
  return text;
}

std::string WholeSeconds(double seconds) {
  char text[64];
  std::snprintf(text, sizeof text, "%.0f s", seconds);
  return text;
}

/// "2^-20 s = 9.54e-07 s"
std::string PowerOf2(std::int32_t exponent, double value) {
  char text[64];
  std::snprintf(text, sizeof text, "2^%d s = %.3g s", exponent, value);
  return text;
}

std::string ServerText(const QueryTimeCLS& query, const TimeRequest& request) {
  std::string text = request.Server() + " over " + (request.tcp ? "TCP" : "UDP");
  if (request.IsSntp()) return text + ", SNTP version " + std::to_string(request.version);
  return text + ", time protocol" + (IsSntpReply(query) ? ", answered by SNTP" : "");
}

std::string TimeOfDay(Date date) {
  std::string text = IsoTime(date);
  text.replace(text.find('T'), 1, " ");
  text.replace(text.find('Z'), 1, " UTC");
  return text;
}

void PrintClock(const QueryTimeCLS& query) {
  PrintLine("time", TimeOfDay(query.DateTime()));
  PrintLine("difference", WholeSeconds(query.SNTPDifference()) +
                              " (this system's local time minus the server's time)");
  if (!HasOffset(query)) return;
  const bool ahead = query.SNTPOffset() >= 0;
  PrintLine("offset", (ahead ? "+" : "") + Seconds(query.SNTPOffset()) +
                          (ahead ? " (the server's clock is ahead of this one)"
                                 : " (the server's clock is behind this one)"));
  PrintLine("delay", Seconds(query.SNTPDelay()) + " (on the way, there and back)");
}

void PrintServerState(const QueryTimeCLS& query) {
  PrintLine("stratum", StratumName(query.SNTPStratum()));
  PrintLine("leap", LeapName(query.SNTPLeapIndicator()));
  PrintLine("mode", ModeName(query.SNTPMode()));
  if (!query.SNTPKissCode().empty()) {
    PrintLine("kiss code", query.SNTPKissCode());
  } else {
    PrintLine("reference", query.SNTPreferenceID().empty() ? "not told" : query.SNTPreferenceID());
  }
  const std::int32_t precision = PrecisionExponent(query);
  PrintLine("precision", PowerOf2(precision, std::ldexp(1, precision)));
  PrintLine("poll interval", PowerOf2(PollExponent(query), query.SNTPPollInterval()));
  PrintLine("root delay", Seconds(RootDelaySeconds(query)));
  PrintLine("root dispersion", Seconds(RootDispersionSeconds(query)));
}

}  // namespace

bool IsGoodTime(const QueryTimeCLS& query) {
  return query.LastErr() == 0 && Refusal(query).empty();
}

void PrintTime(const QueryTimeCLS& query, const TimeRequest& request) {
  const bool hasTime = query.DateTime() != 0;
  if (!hasTime && !IsSntpReply(query)) return;
  PrintLine("server", ServerText(query, request));
  if (hasTime) PrintClock(query);
  PrintLine("round trip", Seconds(query.SNTPRoundTripDelay()) + " (from the request to the reply)");
  if (IsSntpReply(query)) PrintServerState(query);
}

void ExplainTime(const QueryTimeCLS& query, const TimeRequest& request, double timeout) {
  const std::string refusal = Refusal(query);
  if (query.LastErr() != 0) {
    std::string text = FailureText("cannot get the time from " + request.Server(), query.LastErr(),
                                   query.LastErrMsg());
    text += TimeoutAdvice(query.LastErr(), timeout);
    ShowMessage(text + (refusal.empty() ? "" : "; " + refusal));
  } else if (!refusal.empty()) {
    ShowMessage(refusal);
  }
}

}  // namespace netro::tool
