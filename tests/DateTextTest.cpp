// Dates as text and back: what is refused, round trips that lose nothing, the dates of HTTP.
#include <cstdlib>
#include <limits>
#include <random>

#include "Environment.h"
#include "TestKit.h"
#include "support/DateText.h"
#include "support/HttpDate.h"
#include "support/Text.h"

namespace netro {
namespace {

using std::chrono::sys_time;

TEST(DateText, WritesAndReads) {
  const std::pair<Date, std::string> kCases[] = {
      {0, "1899-12-30T00:00:00.000Z"},
      {0.5, "1899-12-30T12:00:00.000Z"},
      {-0.25, "1899-12-29T18:00:00.000Z"},
      {25569, "1970-01-01T00:00:00.000Z"},
      {36585, "2000-02-29T00:00:00.000Z"},
      {46347 + 38700.123 / 86400, "2026-11-21T10:45:00.123Z"},
      {-693959, "0000-01-01T00:00:00.000Z"},
      {2958465 + 86399.999 / 86400, "9999-12-31T23:59:59.999Z"},
  };
  for (const auto& [date, text] : kCases) {
    EXPECT_EQ(DateToText(date), text);
    const auto read = TextToDate(text);
    ASSERT_TRUE(read) << text;
    EXPECT_NEAR(*read, date, 1e-9) << text;
  }
  EXPECT_EQ(DateToText(25569 - 1e-9), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(DateToText(25569 + 0.0006 / 86400), "1970-01-01T00:00:00.001Z");
}

TEST(DateText, HasNoTextOutsideItsYears) {
  constexpr double kInfinite = std::numeric_limits<double>::infinity();
  for (const double date : {-693959.5, 2958466.0, 1e300, -1e300, kInfinite, -kInfinite,
                            std::numeric_limits<double>::quiet_NaN()})
    EXPECT_EQ(DateToText(date), "") << date;
}

TEST(DateText, RefusesOtherText) {
  const std::string good = "2026-11-21T10:45:00.123Z";
  for (std::size_t at = 0; at < good.size(); ++at) {
    EXPECT_EQ(TextToDate(good.substr(0, at)), std::nullopt) << at;
    for (const char other : std::string("tz+- ,:x\xB2\0", 10)) {
      std::string text = good;
      text[at] = other;
      EXPECT_EQ(TextToDate(text).has_value(), text == good) << text;
    }
  }
  for (const std::string& text :
       {good + " ", " " + good, std::string("2026-11-21T10:45:00.1234Z"),
        std::string("2026-11-21T10:45:00Z"), std::string(24, '9'), std::string(100'000, '0')}) {
    EXPECT_EQ(TextToDate(text), std::nullopt) << text;
  }
  for (const char* moment : {"2026-13-21T10:45:00", "2026-00-21T10:45:00", "2026-11-00T10:45:00",
                             "2026-11-31T10:45:00", "2026-02-29T10:45:00", "1900-02-29T10:45:00",
                             "2026-11-21T24:00:00", "2026-11-21T10:60:00", "2026-11-21T10:45:60"}) {
    EXPECT_EQ(TextToDate(moment + std::string(".123Z")), std::nullopt) << moment;
  }
}

// Equality and not nearness: an expiry must be the same before and after.
TEST(DateText, LosesNoMillisecond) {
  std::mt19937_64 random(8601);
  const std::int64_t last =
      sys_time<milliseconds>(std::chrono::sys_days(std::chrono::year(9999) / 12 / 31))
          .time_since_epoch()
          .count();
  std::uniform_int_distribution<std::int64_t> any(-62'167'219'200'000, last);
  for (int i = 0; i < 200'000; ++i) {
    const Date date = ToDate(sys_time<milliseconds>(milliseconds(any(random))));
    ASSERT_EQ(TextToDate(DateToText(date)), date) << DateToText(date);
    ASSERT_EQ(TextToDate(DateToText(AddSeconds(date, 600))), AddSeconds(date, 600));
  }
}

TEST(DateText, AddsSeconds) {
  const Date date = *TextToDate("2026-12-31T23:55:00.007Z");
  EXPECT_EQ(AddSeconds(date, 600), *TextToDate("2027-01-01T00:05:00.007Z"));
  EXPECT_EQ(AddSeconds(date, 0.0004), date);
}

TEST(DateText, WritesTheFormsOfProtocols) {
  using std::chrono::seconds;
  const Date day = *TextToDate("2026-11-21T14:00:59.999Z");
  const Date newYear = *TextToDate("0999-01-01T00:09:05.000Z");
  const std::tuple<DateFormat, Date, seconds, std::string> kCases[] = {
      {DateFormat::Rfc822, day, seconds(3600), "Sat, 21 Nov 2026 14:00:59 +0100"},
      {DateFormat::Rfc822, day, seconds(0), "Sat, 21 Nov 2026 14:00:59 +0000"},
      {DateFormat::Rfc822, day, seconds(-12600), "Sat, 21 Nov 2026 14:00:59 -0330"},
      {DateFormat::Rfc822, newYear, seconds(-1), "Tue, 01 Jan 0999 00:09:05 -0000"},
      {DateFormat::Rfc1123, day, seconds(3600), "Sat, 21 Nov 2026 13:00:59 GMT"},
      {DateFormat::Rfc1123, newYear, seconds(3600), "Mon, 31 Dec 0998 23:09:05 GMT"},
      {DateFormat::Asctime, day, seconds(3600), "Sat Nov 21 14:00:59 2026"},
      {DateFormat::Asctime, newYear, seconds(0), "Tue Jan  1 00:09:05 0999"},
      {DateFormat::Internal, day, seconds(3600), "20261121140059999"},
      {DateFormat::Rfc822, 2958466, seconds(0), ""},
      {DateFormat::Rfc1123, -693959, seconds(60), ""},
      {DateFormat::Internal, std::numeric_limits<double>::quiet_NaN(), seconds(0), ""},
  };
  for (const auto& [format, local, zone, text] : kCases)
    EXPECT_EQ(FormatDate(format, local, zone), text);
}

TEST(DateText, FindsTheZoneOfALocalDate) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const std::pair<std::string, long> kCases[] = {
      {"2026-01-15T12:00:00.000Z", 3600}, {"2026-07-15T12:00:00.000Z", 7200},
      {"2026-03-29T01:59:59.000Z", 3600}, {"2026-03-29T03:00:00.000Z", 7200},
      {"2026-10-25T01:59:59.000Z", 7200}, {"2026-10-25T03:00:00.000Z", 3600},
  };
  for (const auto& [local, seconds] : kCases) {
    const LocalDate found = AtLocalTime(*TextToDate(local));
    EXPECT_EQ(DateToText(found.date), local);
    EXPECT_EQ(found.zone.count(), seconds) << local;
  }
  for (const double date : {1e300, -1e300, -693959.0, 2958465.0})
    EXPECT_LE(std::abs(AtLocalTime(date).zone.count()), 7200) << date;
  const LocalDate now = LocalClock();
  EXPECT_NEAR(now.date, WallClock() + static_cast<double>(now.zone.count()) / 86400, 1.0 / 24);
}

TEST(HttpDate, ReadsEveryUsualForm) {
  const struct {
    const char* text;
    long long seconds;
  } kCases[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", 784111777},
      {"Sunday, 06-Nov-94 08:49:37 GMT", 784111777},
      {"Sun Nov  6 08:49:37 1994", 784111777},
      {"1994 november 6 8:49:37", 784111777},
      {"08:49:37 06 nov 94 GMT+0100", 784111777},
      {"Thu, 01-Jan-1970 00:00:00 GMT", 0},
      {"Wed, 31 Dec 69 23:59:59 GMT", 3155759999},
      {"Fri, 01 Jan 1601 00:00:00 GMT", -11644473600},
      {"Thu, 29 Feb 2024 12:00:00", 1709208000},
      {"Fri, 31 Dec 9999 23:59:59 GMT", 253402300799},
      {"Sun, 06 Nov 1994 08:49:37x GMT", 784111777},
  };
  for (const auto& [text, seconds] : kCases) {
    const auto date = ReadHttpDate(text);
    ASSERT_TRUE(date) << text;
    EXPECT_EQ(date->time_since_epoch().count(), seconds) << text;
  }
}

TEST(HttpDate, RefusesWhatIsNone) {
  for (const std::string& text :
       Split("|0|-1|tomorrow|Sun, 06 Nov 1994|06 1994 08:49:37|06 Nov 08:49:37|Nov 1994 08:49:37|"
             "31 Feb 2024 00:00:00|29 Feb 2023 00:00:00|0 Nov 1994 00:00:00|32 Jan 1994 00:00:00|"
             "06 Nov 1994 24:00:00|06 Nov 1994 08:60:00|06 Nov 1994 08:49:60|06 Nov 1600 08:49:37|"
             "06 Nov 19940 08:49:37|006 Nov 1994 08:49:37|06 Nov 1994 008:49:37|06 Nov 1994 08:49",
             '|')) {
    EXPECT_FALSE(ReadHttpDate(text)) << text;
  }
}

TEST(HttpDate, RetryAfterIsSecondsOrADate) {
  const std::chrono::sys_seconds now{std::chrono::seconds(784111777)};
  const std::pair<const char*, std::optional<long long>> kCases[] = {
      {"120", 120},
      {" 0 ", 0},
      {"Sun, 06 Nov 1994 08:50:37 GMT", 60},
      {"Sun, 06 Nov 1994 08:48:37 GMT", 0},
      {"31622401", 31622400},
      {"99999999999999999999", 31622400},
      {"Fri, 31 Dec 9999 23:59:59 GMT", 31622400},
      {"", std::nullopt},
      {"-1", std::nullopt},
      {"1.5", std::nullopt},
      {"1 s", std::nullopt},
      {"soon", std::nullopt},
  };
  for (const auto& [text, seconds] : kCases) {
    const auto read = ReadRetryAfter(text, now);
    ASSERT_EQ(read.has_value(), seconds.has_value()) << text;
    EXPECT_EQ(read.value_or(now - now).count(), seconds.value_or(0)) << text;
  }
}

}  // namespace
}  // namespace netro
