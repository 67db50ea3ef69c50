// The dates that HTTP servers send, in whatever of the usual forms (RFC 9110, section 5.6.7).
// Thread: any.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace netro {

/// Reads a date by the rules for cookies (RFC 6265, section 5.1.1), which take all three forms of
/// HTTP and what servers make of them: "Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37
/// GMT", "Sun Nov  6 08:49:37 1994". It is UTC whatever zone is named. Years of two digits are 1970
/// to 2069. Nothing for a day that does not exist or is before 1601.
std::optional<std::chrono::sys_seconds> ReadHttpDate(std::string_view text);

/// The value of Retry-After (RFC 9110, section 10.2.3): seconds, or a date. A date in the past is
/// 0, and nothing is longer than a year. Nothing for any other text.
std::optional<std::chrono::seconds> ReadRetryAfter(std::string_view value,
                                                   std::chrono::sys_seconds now);

}  // namespace netro
