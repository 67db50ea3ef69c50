// The results of QueryTimeCLS in units and words for people.

#include "time/TimeText.h"

#include <cmath>
#include <string_view>

namespace netro::tool {
namespace {

constexpr double kRootFactor = 4096;  // see QueryTimeCLS::SNTPRootDelay

struct KissCode {
  std::string_view code;
  const char* meaning;
};

// RFC 4330, section 8.
constexpr KissCode kKissCodes[] = {
    {"DENY", "it does not answer this system"}, {"RSTR", "it does not answer this system"},
    {"RATE", "it is asked too often"},          {"INIT", "its clock is not set yet"},
    {"STEP", "its clock is just being set"},
};

/// The exponent of a power of 2; 0 where no reply has told one.
std::int32_t ExponentOf(double power) {
  return power > 0 ? static_cast<std::int32_t>(std::lround(std::log2(power))) : 0;
}

}  // namespace

bool IsSntpReply(const QueryTimeCLS& query) { return query.SNTPPollInterval() > 0; }

bool HasOffset(const QueryTimeCLS& query) {
  return query.SNTPOffset() != 0 || query.SNTPDelay() != 0;
}

const char* StratumName(SNTPStratumEnum stratum) {
  switch (stratum) {
    case SNTPStratumEnum::Unspecified:
      return "unspecified";
    case SNTPStratumEnum::PrimaryReference:
      return "primary reference";
    case SNTPStratumEnum::SecondaryReference:
      return "secondary reference";
    case SNTPStratumEnum::reserved:
      break;
  }
  return "reserved";
}

const char* LeapName(SNTPLeapIndicatorEnum leap) {
  switch (leap) {
    case SNTPLeapIndicatorEnum::NoWarning:
      return "no warning";
    case SNTPLeapIndicatorEnum::LastMinute61:
      return "last minute of the day has 61 seconds";
    case SNTPLeapIndicatorEnum::LastMinute59:
      return "last minute of the day has 59 seconds";
    case SNTPLeapIndicatorEnum::Alarm:
      break;
  }
  return "alarm, the clock is not set";
}

const char* ModeName(SNTPModeEnum mode) {
  switch (mode) {
    case SNTPModeEnum::SymmetricActive:
      return "symmetric active";
    case SNTPModeEnum::SymmetricPassive:
      return "symmetric passive";
    case SNTPModeEnum::SNTPClient:
      return "client";
    case SNTPModeEnum::SNTPServer:
      return "server";
    case SNTPModeEnum::Broadcast:
      return "broadcast";
    case SNTPModeEnum::Unknown:
      break;
  }
  return "unknown";
}

std::int32_t PollExponent(const QueryTimeCLS& query) {
  return ExponentOf(query.SNTPPollInterval());
}

std::int32_t PrecisionExponent(const QueryTimeCLS& query) {
  const std::int32_t byte = ExponentOf(query.SNTPPrecision());
  return byte > 127 ? byte - 256 : byte;
}

double RootDelaySeconds(const QueryTimeCLS& query) {
  const double seconds = query.SNTPRootDelay() / kRootFactor;
  return seconds < 32768 ? seconds : seconds - 65536;
}

double RootDispersionSeconds(const QueryTimeCLS& query) {
  return query.SNTPRootDispersion() / kRootFactor;
}

std::string Refusal(const QueryTimeCLS& query) {
  if (!query.SNTPKissCode().empty()) {
    std::string text = "the server sends the kiss code \"" + query.SNTPKissCode() + "\"";
    for (const KissCode& kiss : kKissCodes) {
      text += query.SNTPKissCode() == kiss.code ? std::string(": ") + kiss.meaning : "";
    }
    return text;
  }
  if (query.SNTPLeapIndicator() == SNTPLeapIndicatorEnum::Alarm) {
    return "the server says that its clock is not set";
  }
  // A 4-byte reply tells no mode, and no stratum either.
  const bool sntp = query.SNTPMode() != SNTPModeEnum::Unknown;
  return sntp && query.SNTPStratum() == SNTPStratumEnum::Unspecified
             ? "the server says that it has no time"
             : "";
}

}  // namespace netro::tool
