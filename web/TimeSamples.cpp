#include "web/TimeSamples.h"

#include <netro/MessageLoop.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace netro {
namespace {

/// By how much an undisciplined clock may go wrong in a second (RFC 5905, section 7.1).
constexpr double kTolerance = 15e-6;
/// MINDISP there: what delays on a fast way say is less than what clocks are read with, and servers
/// that agree would seem to contradict each other.
constexpr double kLeastDelay = 0.005;
/// MAXDIST there: a server that may be that wrong would agree with everybody.
constexpr double kMostDistance = 1;
constexpr double kRootFactor = 4096;  // see QueryTimeCLS::SNTPRootDelay
constexpr std::int32_t kFirstUnset = 16;

// The delay has a sign; what is below zero comes from rounding.
double RootDelay(const QueryTimeCLS& query) {
  const double seconds = query.SNTPRootDelay() / kRootFactor;
  return seconds < 32768 ? seconds : 0;
}

double Precision(const QueryTimeCLS& query) {
  const double exponent = std::log2(query.SNTPPrecision());
  return std::exp2(exponent > 127 ? exponent - 256 : exponent);
}

double RootDispersion(const QueryTimeCLS& query) {
  return query.SNTPRootDispersion() / kRootFactor;
}

// RFC 5905, section 11.2: what the offset may be wrong by.
double RootDistance(const QueryTimeCLS& query) {
  const double delay = std::max(query.SNTPDelay(), 0.0);
  return std::max(delay + RootDelay(query), kLeastDelay) / 2 + RootDispersion(query) +
         Precision(query) + kTolerance * query.SNTPRoundTripDelay();
}

// Why a reply does not count; empty when it does.
std::string Objection(const QueryTimeCLS& query) {
  if (!query.SNTPKissCode().empty()) return "sends the kiss code \"" + query.SNTPKissCode() + "\"";
  if (query.SNTPLeapIndicator() == SNTPLeapIndicatorEnum::Alarm) return "its clock is not set";
  if (query.SNTPMode() != SNTPModeEnum::SNTPServer) return "does not answer as a server";
  if (query.SNTPStratumNumber() == 0 || query.SNTPStratumNumber() >= kFirstUnset) {
    return "has no time, stratum " + std::to_string(query.SNTPStratumNumber());
  }
  if (query.SNTPOffset() == 0 && query.SNTPDelay() == 0) return "does not tell when it was asked";
  const double distance = RootDistance(query);
  return distance < kMostDistance
             ? ""
             : "may be wrong by " + std::to_string(std::lround(distance)) + " s";
}

void EnterState(const QueryTimeCLS& query, TimeServerReport& report) {
  report.Stratum = query.SNTPStratumNumber();
  report.LeapIndicator = query.SNTPLeapIndicator();
  report.KissCode = query.SNTPKissCode();
  report.ReferenceID = query.SNTPreferenceID();
}

void EnterSample(const QueryTimeCLS& query, TimeServerReport& report) {
  const double delay = std::max(query.SNTPDelay(), 0.0);
  if (report.Samples++ > 0 && delay >= report.Delay) return;
  EnterState(query, report);
  report.Offset = query.SNTPOffset();
  report.Delay = delay;
  report.RootDelay = RootDelay(query);
  report.RootDispersion = RootDispersion(query);
  report.Bound = RootDistance(query);
}

}  // namespace

void TakeTimeSamples(QueryTimeCLS& query, const TimeSampling& sampling, TimeServerReport& report) {
  for (std::int32_t asked = 0; asked < sampling.samples; ++asked) {
    if (asked > 0 &&
        MessageLoop::ForThisThread().Sleep(std::chrono::milliseconds(sampling.interval)) != 0) {
      return;
    }
    const bool answered = query.QueryTime();
    report.LastErr = query.LastErr();
    std::string objection = answered ? Objection(query) : query.LastErrMsg();
    if (objection.empty()) {
      EnterSample(query, report);
      report.State = TimeServerStateEnum::Unjudged;
      continue;
    }
    // What was told before counts: some servers refuse only who asks too often.
    if (report.Samples > 0) {
      report.KissCode = query.SNTPKissCode();
    } else {
      EnterState(query, report);
      report.Reason = std::move(objection);
    }
    return;
  }
}

}  // namespace netro
