// "netro time --json".

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "terminal/IsoTime.h"
#include "terminal/JsonOutput.h"
#include "time/TimeOutput.h"
#include "time/TimeText.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

/// null for what is not there.
Json If(bool there, Json value) { return there ? std::move(value) : Json(nullptr); }

Json Text(const std::string& text) { return If(!text.empty(), text); }

Json Frame(const QueryTimeCLS& query, const TimeRequest& request, double seconds) {
  const bool hasTime = query.DateTime() != 0;
  const char* reply = IsSntpReply(query) ? "SNTP" : "time protocol";
  return {
      {"server", request.Server()},
      {"transport", request.tcp ? "TCP" : "UDP"},
      {"protocol", request.IsSntp() ? "SNTP" : "time protocol"},
      {"version", If(request.IsSntp(), request.version)},
      {"ok", IsGoodTime(query)},
      {"refusal", Text(Refusal(query))},
      {"error", {{"number", query.LastErr()}, {"text", query.LastErrMsg()}}},
      {"seconds", seconds},
      {"reply", If(hasTime || IsSntpReply(query), reply)},
      {"time", If(hasTime, hasTime ? IsoTime(query.DateTime()) : "")},
      {"difference", If(hasTime, query.SNTPDifference())},
      {"offset", If(HasOffset(query), query.SNTPOffset())},
      {"delay", If(HasOffset(query), query.SNTPDelay())},
      {"round_trip", If(query.SNTPRoundTripDelay() != 0, query.SNTPRoundTripDelay())},
  };
}

/// What only a reply of SNTP tells.
Json ServerState(const QueryTimeCLS& query) {
  return {
      {"stratum", StratumName(query.SNTPStratum())},
      {"leap", LeapName(query.SNTPLeapIndicator())},
      {"mode", ModeName(query.SNTPMode())},
      {"reference", Text(query.SNTPreferenceID())},
      {"kiss_code", Text(query.SNTPKissCode())},
      {"precision", query.SNTPPrecision()},
      {"precision_exponent", PrecisionExponent(query)},
      {"precision_seconds", std::ldexp(1, PrecisionExponent(query))},
      {"poll_interval", query.SNTPPollInterval()},
      {"root_delay", query.SNTPRootDelay()},
      {"root_delay_seconds", RootDelaySeconds(query)},
      {"root_dispersion", query.SNTPRootDispersion()},
      {"root_dispersion_seconds", RootDispersionSeconds(query)},
  };
}

}  // namespace

void PrintTimeJson(const QueryTimeCLS& query, const TimeRequest& request, double seconds) {
  Json object = Frame(query, request, seconds);
  const Json state = ServerState(query);
  for (const auto& [key, value] : state.items()) object[key] = If(IsSntpReply(query), value);
  PrintObject(object);
}

}  // namespace netro::tool
