// The part of the tour about QueryTimeCLS: two protocols, two transports, and a server that
// refuses.

#include <netro/QueryTimeCLS.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "terminal/IsoTime.h"
#include "terminal/Stopwatch.h"
#include "time/TimeText.h"
#include "tour/TourSections.h"
#include "tour/TourTimeServer.h"

namespace netro::tool {
namespace {

/// What a step asks for, and what is expected of it.
struct TimeStep {
  const char* title;
  bool overTcp;
  TourTimeReply (*reply)();
  std::int32_t error;
  const char* reference;
  const char* kissCode;
};

const TimeStep kSteps[] = {
    {"The time protocol over UDP", false, TimeProtocolReply, 0, "", ""},
    {"The time protocol over TCP", true, nullptr, 0, "", ""},
    {"An SNTP reply", false, SntpReply, 0, "GPS", ""},
    {"A server that wants to be left alone", false, KissOfDeathReply, 100000, "", "RATE"},
};

/// The server's clock is an hour fast: so much is what a step must find, and nothing without a
/// time.
bool IsClockAsExpected(const QueryTimeCLS& query) {
  constexpr double kTolerance = 2;  // replies of the time protocol have whole seconds
  if (query.LastErr() != 0) return query.DateTime() == 0;
  const double now =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  constexpr double kDaysTo1970 = 25569;
  const double ahead = (query.DateTime() - kDaysTo1970) * 86400 - now;
  const bool offsetFits =
      !HasOffset(query) || std::abs(query.SNTPOffset() - kTourClockIsFast) < kTolerance;
  return std::abs(ahead - kTourClockIsFast) < kTolerance && offsetFits;
}

std::string OutcomeText(const QueryTimeCLS& query) {
  if (query.LastErr() != 0) {
    return "error " + std::to_string(query.LastErr()) + ", \"" + query.LastErrMsg() +
           "\"; SNTPKissCode " + query.SNTPKissCode();
  }
  std::string text = IsoTime(query.DateTime());
  if (HasOffset(query)) {
    char offset[64];
    std::snprintf(offset, sizeof offset, "; the server's clock is %.3f s ahead",
                  query.SNTPOffset());
    text += offset;
  }
  if (IsSntpReply(query)) {
    text += std::string("; ") + StratumName(query.SNTPStratum()) + " " + query.SNTPreferenceID();
  }
  return text;
}

TourStep Run(const TimeStep& step, TourTimeServer& server, TourJournal& journal) {
  if (step.reply != nullptr) server.AnswerWith(step.reply);
  QueryTimeCLS query;
  query.Server("127.0.0.1");
  query.Port(step.overTcp ? server.TcpPort() : server.UdpPort());
  query.UseUDP(!step.overTcp);
  query.Timeout(5);

  TourStep report;
  report.title = step.title;
  report.call = std::string("QueryTime at 127.0.0.1:") + std::to_string(query.Port()) +
                (step.overTcp ? " over TCP" : " over UDP");
  const Stopwatch watch;
  query.QueryTime();
  report.seconds = watch.Seconds();
  report.outcome = OutcomeText(query);
  report.messages = journal.Take();
  report.asExpected = query.LastErr() == step.error && IsClockAsExpected(query) &&
                      query.SNTPreferenceID() == step.reference &&
                      query.SNTPKissCode() == step.kissCode;
  return report;
}

}  // namespace

void TourTime(TourReport& report) {
  TourJournal journal;
  TourTimeServer server(journal);
  for (const TimeStep& step : kSteps) report.Add(Run(step, server, journal));
}

}  // namespace netro::tool
