// Dates as text and back: known moments, what is refused, and round trips that lose nothing.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <string>

#include "support/DateText.h"

namespace netro {
namespace {

using std::chrono::milliseconds;
using std::chrono::sys_time;

TEST(DateText, WritesAndReads) {
  const struct {
    Date date;
    std::string text;
  } kCases[] = {
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
}

TEST(DateText, RoundsToTheNearestMillisecond) {
  EXPECT_EQ(DateToText(25569 - 1e-9), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(DateToText(25569 + 0.0006 / 86400), "1970-01-01T00:00:00.001Z");
}

TEST(DateText, HasNoTextOutsideItsYears) {
  const double kCases[] = {-693959.5,
                           2958466,
                           1e300,
                           -1e300,
                           std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN()};
  for (const double date : kCases) {
    EXPECT_EQ(DateToText(date), "") << date;
  }
}

TEST(DateText, RefusesOtherText) {
  const std::string kCases[] = {
      "",
      "2026-11-21",
      "2026-11-21T10:45:00Z",
      "2026-11-21T10:45:00.123",
      "2026-11-21T10:45:00.123Z ",
      " 2026-11-21T10:45:00.123Z",
      "2026-11-21T10:45:00.1234Z",
      "2026-11-21 10:45:00.123Z",
      "2026-11-21t10:45:00.123z",
      "2026-11-21T10:45:00,123Z",
      "2026-11-21T10:45:00.123+",
      "2026-13-21T10:45:00.123Z",
      "2026-00-21T10:45:00.123Z",
      "2026-11-00T10:45:00.123Z",
      "2026-11-31T10:45:00.123Z",
      "2026-02-29T10:45:00.123Z",
      "1900-02-29T10:45:00.123Z",
      "2026-11-21T24:00:00.000Z",
      "2026-11-21T10:60:00.123Z",
      "2026-11-21T10:45:60.123Z",
      "-026-11-21T10:45:00.123Z",
      "+026-11-21T10:45:00.123Z",
      "2026--1-21T10:45:00.123Z",
      "2026-+1-21T10:45:00.123Z",
      "2026- 1-21T10:45:00.123Z",
      "2026-1\x00-21T10:45:00.123Z",
      "2026-11-21T0x:45:00.123Z",
      "2026-11-21T10:45:00.-23Z",
      "2026-11-21T10:45:00.12\xB2Z",
      std::string(24, '\0'),
      std::string(24, '9'),
      std::string(100000, '0'),
  };
  for (const std::string& text : kCases) {
    EXPECT_EQ(TextToDate(text), std::nullopt) << text;
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
  EXPECT_EQ(AddSeconds(AddSeconds(date, 600), -600), date);
  EXPECT_EQ(AddSeconds(date, 0.0004), date);
}

}  // namespace
}  // namespace netro
