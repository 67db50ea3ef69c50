// Dates as text and as the standard library's points in time.

#include "support/DateText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <system_error>

namespace netro {
namespace {

using std::chrono::days;
using std::chrono::milliseconds;
using std::chrono::sys_days;
using std::chrono::sys_time;
using std::chrono::year;
using Time = sys_time<milliseconds>;

constexpr sys_days kDayZero = year(1899) / 12 / 30;
constexpr sys_days kFirstDay = year(0) / 1 / 1;
constexpr sys_days kEndDay = year(10000) / 1 / 1;
constexpr double kMillisecondsPerDay = 86400000;
constexpr std::string_view kPattern = "0000-00-00T00:00:00.000Z";
constexpr std::string_view kDays = "SunMonTueWedThuFriSat";
constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";

/// Reads numbers out of fixed places. Ok() is false once a place held anything but digits.
class Digits {
 public:
  explicit Digits(std::string_view text) : text_(text) {}

  unsigned At(std::size_t position, std::size_t count) {
    unsigned value = 0;
    const char* const begin = text_.data() + position;
    const auto [end, error] = std::from_chars(begin, begin + count, value);
    ok_ = ok_ && error == std::errc() && end == begin + count;
    return value;
  }

  bool Ok() const { return ok_; }

 private:
  std::string_view text_;
  bool ok_ = true;
};

/// Writes `count` digits of `value`, with zeros in front.
void Put(std::string& text, std::size_t position, std::size_t count, std::int64_t value) {
  for (; count > 0; value /= 10) {
    text[position + --count] = static_cast<char>('0' + value % 10);
  }
}

/// A point in time taken apart.
struct Moment {
  explicit Moment(Time time)
      : day(std::chrono::floor<days>(time)), calendar(day), clock(time - day) {}

  std::chrono::sys_days day;
  std::chrono::year_month_day calendar;
  std::chrono::hh_mm_ss<milliseconds> clock;
};

std::string Number(std::int64_t value, std::size_t width, char fill = '0') {
  const std::string digits = std::to_string(value);
  return std::string(width - std::min(width, digits.size()), fill) + digits;
}

std::string DayName(const Moment& moment) {
  return std::string(kDays.substr(3 * std::chrono::weekday(moment.day).c_encoding(), 3));
}

std::string MonthName(const Moment& moment) {
  return std::string(kMonths.substr(3 * (unsigned{moment.calendar.month()} - 1), 3));
}

std::string YearText(const Moment& moment) { return Number(int{moment.calendar.year()}, 4); }

std::string ClockText(const Moment& moment) {
  return Number(moment.clock.hours().count(), 2) + ":" + Number(moment.clock.minutes().count(), 2) +
         ":" + Number(moment.clock.seconds().count(), 2);
}

/// "Sat, 21 Nov 2026 14:00:00 "
std::string DayFirst(Time time) {
  const Moment moment(time);
  return DayName(moment) + ", " + Number(unsigned{moment.calendar.day()}, 2) + " " +
         MonthName(moment) + " " + YearText(moment) + " " + ClockText(moment) + " ";
}

std::string Asctime(Time time) {
  const Moment moment(time);
  return DayName(moment) + " " + MonthName(moment) + " " +
         Number(unsigned{moment.calendar.day()}, 2, ' ') + " " + ClockText(moment) + " " +
         YearText(moment);
}

/// "+0100"; what a zone of the past has in seconds is left out.
std::string ZoneText(std::chrono::seconds zone) {
  const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(std::chrono::abs(zone));
  return (zone < zone.zero() ? "-" : "+") +
         Number(minutes.count() / 60 * 100 + minutes.count() % 60, 4);
}

bool HasPunctuation(std::string_view text) {
  for (std::size_t i = 0; i < kPattern.size(); ++i) {
    if (kPattern[i] != '0' && kPattern[i] != text[i]) {
      return false;
    }
  }
  return true;
}

}  // namespace

// The quotient of whole milliseconds is the double next to the true value, and so the same one
// whichever way the milliseconds came about.
Date ToDate(sys_time<milliseconds> time) {
  return static_cast<double>((time - kDayZero).count()) / kMillisecondsPerDay;
}

Date AddSeconds(Date date, double seconds) {
  return std::round(date * kMillisecondsPerDay + seconds * 1000) / kMillisecondsPerDay;
}

std::optional<Time> ToTime(Date date) {
  const double count = std::round(date * kMillisecondsPerDay);
  constexpr auto kFirst = static_cast<double>(milliseconds(kFirstDay - kDayZero).count());
  constexpr auto kEnd = static_cast<double>(milliseconds(kEndDay - kDayZero).count());
  if (!(count >= kFirst && count < kEnd)) {  // also when it is not a number
    return std::nullopt;
  }
  return kDayZero + milliseconds(static_cast<std::int64_t>(count));
}

std::string DateToText(Date date) {
  const std::optional<Time> time = ToTime(date);
  if (!time) {
    return {};
  }
  const Moment moment(*time);
  std::string text(kPattern);
  Put(text, 0, 4, int{moment.calendar.year()});
  Put(text, 5, 2, unsigned{moment.calendar.month()});
  Put(text, 8, 2, unsigned{moment.calendar.day()});
  Put(text, 11, 2, moment.clock.hours().count());
  Put(text, 14, 2, moment.clock.minutes().count());
  Put(text, 17, 2, moment.clock.seconds().count());
  Put(text, 20, 3, moment.clock.subseconds().count());
  return text;
}

std::string FormatDate(DateFormat format, Date local, std::chrono::seconds zone) {
  const std::optional<Time> time = ToTime(local);
  if (!time) {
    return {};
  }
  switch (format) {
    case DateFormat::Internal: {
      std::string digits = DateToText(local);
      std::erase_if(digits, [](char c) { return c < '0' || c > '9'; });
      return digits;
    }
    case DateFormat::Rfc1123: {
      const std::optional<Time> utc = ToTime(ToDate(*time - zone));
      return utc ? DayFirst(*utc) + "GMT" : std::string();
    }
    case DateFormat::Rfc822:
      return DayFirst(*time) + ZoneText(zone);
    case DateFormat::Asctime:
      return Asctime(*time);
  }
  return {};
}

std::optional<Date> TextToDate(std::string_view text) {
  if (text.size() != kPattern.size() || !HasPunctuation(text)) {
    return std::nullopt;
  }
  Digits digits(text);
  const year years(static_cast<int>(digits.At(0, 4)));
  const std::chrono::month month(digits.At(5, 2));
  const std::chrono::day day(digits.At(8, 2));
  const unsigned hours = digits.At(11, 2);
  const unsigned minutes = digits.At(14, 2);
  const unsigned seconds = digits.At(17, 2);
  const unsigned fraction = digits.At(20, 3);
  const auto date = years / month / day;
  if (!digits.Ok() || !date.ok() || hours > 23 || minutes > 59 || seconds > 59) {
    return std::nullopt;
  }
  return ToDate(sys_days(date) + std::chrono::hours(hours) + std::chrono::minutes(minutes) +
                std::chrono::seconds(seconds) + milliseconds(fraction));
}

}  // namespace netro
