// The dates of HTTP and of cookies.
#include "TestKit.h"
#include "support/HttpDate.h"

namespace netro {
namespace {

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
  for (const char* text : {"",
                           "0",
                           "-1",
                           "tomorrow",
                           "Sun, 06 Nov 1994",
                           "06 1994 08:49:37",
                           "06 Nov 08:49:37",
                           "Nov 1994 08:49:37",
                           "31 Feb 2024 00:00:00",
                           "29 Feb 2023 00:00:00",
                           "0 Nov 1994 00:00:00",
                           "32 Jan 1994 00:00:00",
                           "06 Nov 1994 24:00:00",
                           "06 Nov 1994 08:60:00",
                           "06 Nov 1994 08:49:60",
                           "06 Nov 1600 08:49:37",
                           "06 Nov 19940 08:49:37",
                           "006 Nov 1994 08:49:37",
                           "06 Nov 1994 008:49:37",
                           "06 Nov 1994 08:49"}) {
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
