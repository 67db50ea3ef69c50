// Dates as text and as the standard library's points in time, UTC unless said otherwise. Thread:
// any.
#pragma once

#include <netro/Types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace netro {

/// The same millisecond always gives the same Date, so that such dates may be compared.
Date ToDate(std::chrono::sys_time<std::chrono::milliseconds> time);

/// The way back, to the nearest millisecond; nothing outside the years 0 to 9999.
std::optional<std::chrono::sys_time<std::chrono::milliseconds>> ToTime(Date date);

/// `date` plus `seconds`, rounded to a whole millisecond.
Date AddSeconds(Date date, double seconds);

/// ISO 8601 with milliseconds, as "2026-11-21T10:45:00.123Z". Nothing is lost when `date` is a
/// whole millisecond. Empty outside the years 0 to 9999.
std::string DateToText(Date date);

/// Reads what DateToText writes, in exactly that form.
std::optional<Date> TextToDate(std::string_view text);

/// The forms of a date in protocols, always with English names.
enum class DateFormat {
  Internal,  ///< local time as one number, for stamps: "20261121140000123"
  Rfc1123,   ///< as HTTP has it: "Sat, 21 Nov 2026 13:00:00 GMT"
  Rfc822,    ///< as mail has it (RFC 5322, section 3.3): "Sat, 21 Nov 2026 14:00:00 +0100"
  Asctime,   ///< local time: "Sat Nov 21 14:00:00 2026", a day below 10 with two blanks before it
};

/// A date in local time whose zone adds `zone` to UTC. Cut down to the second in all forms but the
/// first. Empty outside the years 0 to 9999.
std::string FormatDate(DateFormat format, Date local, std::chrono::seconds zone);

}  // namespace netro
