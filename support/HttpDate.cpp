#include "support/HttpDate.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::string_view kMonths = "janfebmaraprmayjunjulaugsepoctnovdec";

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// RFC 6265: delimiter. A colon is none, it keeps a time together.
bool IsDelimiter(char c) {
  return c == '\t' || (c >= ' ' && c <= '/') || (c >= ';' && c <= '@') || (c >= '[' && c <= '`') ||
         (c >= '{' && c <= '~');
}

std::string_view TakeToken(std::string_view& text) {
  text.remove_prefix(
      static_cast<std::size_t>(std::ranges::find_if_not(text, IsDelimiter) - text.begin()));
  const auto size =
      static_cast<std::size_t>(std::ranges::find_if(text, IsDelimiter) - text.begin());
  const std::string_view token = text.substr(0, size);
  text.remove_prefix(size);
  return token;
}

/// Takes a number of `least` to `most` digits off the front, which no further digit may follow.
std::optional<int> TakeNumber(std::string_view& text, std::size_t least, std::size_t most) {
  std::size_t count = 0;
  int value = 0;
  for (; count < text.size() && count <= most && IsDigit(text[count]); ++count) {
    value = value * 10 + (text[count] - '0');
  }
  if (count < least || count > most) return std::nullopt;
  text.remove_prefix(count);
  return value;
}

std::optional<std::chrono::seconds> ReadTime(std::string_view token) {
  int parts[3];
  for (int i = 0; i < 3; ++i) {
    if (i > 0) {
      if (!token.starts_with(':')) return std::nullopt;
      token.remove_prefix(1);
    }
    const auto number = TakeNumber(token, 1, 2);
    if (!number) return std::nullopt;
    parts[i] = *number;
  }
  if (parts[0] > 23 || parts[1] > 59 || parts[2] > 59) return std::chrono::seconds(-1);
  return std::chrono::seconds(parts[0] * 3600 + parts[1] * 60 + parts[2]);
}

std::optional<unsigned> ReadMonth(std::string_view token) {
  const std::size_t at =
      token.size() < 3 ? kMonths.npos : kMonths.find(ToLower(token.substr(0, 3)));
  if (at == kMonths.npos || at % 3 != 0) return std::nullopt;
  return static_cast<unsigned>(at / 3 + 1);
}

int FullYear(int year) { return year < 70 ? year + 2000 : year < 100 ? year + 1900 : year; }

}  // namespace

// The first token that can be a part is that part.
std::optional<std::chrono::sys_seconds> ReadHttpDate(std::string_view text) {
  std::optional<std::chrono::seconds> time;
  std::optional<int> day;
  std::optional<unsigned> month;
  std::optional<int> year;
  for (auto token = TakeToken(text); !token.empty(); token = TakeToken(text)) {
    if (!time && (time = ReadTime(token))) continue;
    std::string_view rest = token;
    if (!day && (day = TakeNumber(rest, 1, 2))) continue;
    if (!month && (month = ReadMonth(token))) continue;
    if (!year) year = TakeNumber(rest, 2, 4);
  }
  if (!time || !day || !month || !year || *time < time->zero()) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(FullYear(*year)),
                                         std::chrono::month(*month),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok() || date.year() < std::chrono::year(1601)) return std::nullopt;
  return std::chrono::sys_days(date) + *time;
}

std::optional<std::chrono::seconds> ReadRetryAfter(std::string_view value,
                                                   std::chrono::sys_seconds now) {
  constexpr std::chrono::seconds kLongest = std::chrono::days(366);
  const std::string text = Trim(value);
  if (!text.empty() && std::ranges::all_of(text, IsDigit)) {
    std::int64_t seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    return error == std::errc() ? std::min(std::chrono::seconds(seconds), kLongest) : kLongest;
  }
  const auto date = ReadHttpDate(text);
  if (!date) return std::nullopt;
  return std::clamp(std::chrono::seconds(*date - now), std::chrono::seconds(0), kLongest);
}

}  // namespace netro
