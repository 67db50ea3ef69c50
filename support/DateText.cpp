// Dates as text and as the standard library's points in time, all UTC. Thread: any.

#include "support/DateText.h"

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

constexpr sys_days kDayZero = year(1899) / 12 / 30;
constexpr sys_days kFirstDay = year(0) / 1 / 1;
constexpr sys_days kEndDay = year(10000) / 1 / 1;
constexpr double kMillisecondsPerDay = 86400000;
constexpr std::string_view kPattern = "0000-00-00T00:00:00.000Z";

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

std::string DateToText(Date date) {
  const double count = std::round(date * kMillisecondsPerDay);
  constexpr auto kFirst = static_cast<double>(milliseconds(kFirstDay - kDayZero).count());
  constexpr auto kEnd = static_cast<double>(milliseconds(kEndDay - kDayZero).count());
  if (!(count >= kFirst && count < kEnd)) {  // also when it is not a number
    return {};
  }
  const auto time = kDayZero + milliseconds(static_cast<std::int64_t>(count));
  const auto day = std::chrono::floor<days>(time);
  const std::chrono::year_month_day calendar(day);
  const std::chrono::hh_mm_ss clock(time - day);
  std::string text(kPattern);
  Put(text, 0, 4, int{calendar.year()});
  Put(text, 5, 2, unsigned{calendar.month()});
  Put(text, 8, 2, unsigned{calendar.day()});
  Put(text, 11, 2, clock.hours().count());
  Put(text, 14, 2, clock.minutes().count());
  Put(text, 17, 2, clock.seconds().count());
  Put(text, 20, 3, clock.subseconds().count());
  return text;
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
