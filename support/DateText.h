// Dates as text and as the standard library's points in time, all UTC. Thread: any.
#pragma once

#include <netro/Types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace netro {

/// The same millisecond always gives the same Date, so that such dates may be compared.
Date ToDate(std::chrono::sys_time<std::chrono::milliseconds> time);

/// `date` plus `seconds`, rounded to a whole millisecond.
Date AddSeconds(Date date, double seconds);

/// ISO 8601 with milliseconds, as "2026-11-21T10:45:00.123Z". Nothing is lost when `date` is a
/// whole millisecond. Empty outside the years 0 to 9999.
std::string DateToText(Date date);

/// Reads what DateToText writes, in exactly that form.
std::optional<Date> TextToDate(std::string_view text);

}  // namespace netro
