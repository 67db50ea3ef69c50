// A date as text for people and programs.

#include "terminal/IsoTime.h"

#include <chrono>
#include <cmath>
#include <cstdio>

namespace netro::tool {

std::string IsoTime(Date date) {
  using std::chrono::milliseconds;
  constexpr double kDaysTo1970 = 25569;
  constexpr double kMillisecondsPerDay = 86400000;
  const milliseconds since1970(std::llround((date - kDaysTo1970) * kMillisecondsPerDay));
  const std::chrono::sys_time<milliseconds> time(since1970);
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day calendar(day);
  const std::chrono::hh_mm_ss clock(time - day);
  char text[64];
  std::snprintf(
      text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(calendar.year()),
      static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
      static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return text;
}

}  // namespace netro::tool
