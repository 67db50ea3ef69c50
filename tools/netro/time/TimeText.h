// The results of QueryTimeCLS in units and words for people. Thread: any.
#pragma once

#include <netro/QueryTimeCLS.h>

#include <cstdint>
#include <optional>
#include <string>

namespace netro::tool {

/// True when the reply was one of SNTP, which tells more than the time.
bool IsSntpReply(const QueryTimeCLS& query);
/// True when the server told when it got the request, so that SNTPOffset and SNTPDelay count.
bool HasOffset(const QueryTimeCLS& query);

const char* StratumName(SNTPStratumEnum stratum);
const char* LeapName(SNTPLeapIndicatorEnum leap);
const char* ModeName(SNTPModeEnum mode);

/// The power of 2 that SNTPPollInterval is.
std::int32_t PollExponent(const QueryTimeCLS& query);
/// The power of 2 that the server's precision is, in seconds; -20 for the property's 2^236.
std::int32_t PrecisionExponent(const QueryTimeCLS& query);
/// The root delay and dispersion in seconds. The delay has a sign (RFC 4330, section 4).
double RootDelaySeconds(const QueryTimeCLS& query);
double RootDispersionSeconds(const QueryTimeCLS& query);

/// Why the time of a reply does not count although one came; empty when it does.
std::string Refusal(const QueryTimeCLS& query);

}  // namespace netro::tool
