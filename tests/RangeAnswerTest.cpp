// Continuing a body: the fields of the request, Content-Range, and what an answer means.
#include "TestKit.h"
#include "web/RangeAnswer.h"

namespace netro {
namespace {

constexpr const char* kModified = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr const char* kLater = "Mon, 07 Nov 1994 08:49:37 GMT";

TEST(RangeAnswer, ReadsContentRange) {
  const struct {
    const char* text;
    const char* read;  // first-last/total
  } kCases[] = {
      {"bytes 0-499/1234", "0-499/1234"},
      {" Bytes 0-0/1 ", "0-0/1"},
      {"bytes 500-500/*", "500-500/*"},
      {"bytes */1234", "*/1234"},
      {"bytes */0", "*/0"},
      {"bytes 0-9007199254740991/9007199254740992", "0-9007199254740991/9007199254740992"},
      {"bytes */*", ""},
      {"bytes 0-499", ""},
      {"bytes=0-499/1234", ""},
      {"items 0-499/1234", ""},
      {"bytes 0-499/499", ""},
      {"bytes 5-4/9", ""},
      {"bytes -4/9", ""},
      {"bytes 5-/9", ""},
      {"bytes +1-4/9", ""},
      {"bytes 0-4/9x", ""},
      {"bytes 0-4/-9", ""},
      {"bytes 0-4/18446744073709551620", ""},
      {"bytes 0-9007199254740993/*", ""},
      {"bytes", ""},
      {"", ""},
  };
  for (const auto& [text, read] : kCases) {
    std::string result;
    if (const auto range = ReadContentRange(text)) {
      if (range->satisfied)
        result = std::to_string(range->first) + "-" + std::to_string(range->last);
      result += range->satisfied ? "/" : "*/";
      result += range->total ? std::to_string(*range->total) : "*";
    }
    EXPECT_EQ(result, read) << text;
  }
}

TEST(RangeAnswer, OnlyStrongValidatorsGoIntoIfRange) {
  const struct {
    PartialBody partial;
    const char* range;    // null: an ordinary request
    const char* ifRange;  // null: not sent
  } kCases[] = {
      {{5, "\"a\"", "", "", false}, "bytes=5-", "\"a\""},
      {{5, "\"\"", kModified, "", false}, "bytes=5-", "\"\""},
      {{0, "\"a\"", "", "", false}, nullptr, nullptr},
      {{0, "\"a\"", "", "", true}, nullptr, nullptr},
      {{5, "", "", "", false}, nullptr, nullptr},
      {{5, "", "", "", true}, "bytes=5-", nullptr},
      {{5, "\"a\"", "", "", true}, "bytes=5-", "\"a\""},
      {{5, "W/\"a\"", "", "", false}, nullptr, nullptr},
      {{5, "\"a\r\nX: y\"", "", "", false}, nullptr, nullptr},
      {{5, "\"a\"b\"", "", "", false}, nullptr, nullptr},
      {{5, "\"", "", "", false}, nullptr, nullptr},
      {{5, "", kModified, "", false}, nullptr, nullptr},
      {{5, "", kModified, "Sun, 06 Nov 1994 08:50:36 GMT", false}, nullptr, nullptr},
      {{5, "", kModified, "Sun, 06 Nov 1994 08:50:37 GMT", false}, "bytes=5-", kModified},
      {{5, "W/\"a\"", kModified, "Sun, 06 Nov 1994 09:50:37 GMT", false}, nullptr, nullptr},
  };
  for (const auto& [partial, range, ifRange] : kCases) {
    SCOPED_TRACE(partial.entityTag + partial.date);
    const auto fields = ResumeFields(partial);
    ASSERT_EQ(fields.size(), (range != nullptr) + std::size_t{ifRange != nullptr});
    if (range == nullptr) continue;
    EXPECT_EQ(fields[0].first + ":" + fields[0].second, std::string("Range:") + range);
    if (ifRange == nullptr) continue;
    EXPECT_EQ(fields[1].first + ":" + fields[1].second, std::string("If-Range:") + ifRange);
  }
}

TEST(RangeAnswer, DecidesWhatAnAnswerMeans) {
  const PartialBody tagged{5, "\"a\"", kModified, "", false};
  const PartialBody blind{5, "", kModified, "", true};
  const PartialBody none{0, "\"a\"", "", "", false};
  using enum ResumeStep;
  const struct {
    PartialBody partial;
    RangeAnswer answer;
    ResumeStep step;
    std::optional<std::uint64_t> total;
    const char* why;
  } kCases[] = {
      {tagged, {206, "bytes 5-9/10", "", "\"a\"", "", 5}, Continue, 10, ""},
      {tagged, {206, "bytes 5-7/8", "text/plain", "", "", {}, "identity"}, Continue, 8, ""},
      {tagged, {206, "bytes 5-7/*", "text/plain", "", "", {}}, AskAgain, {}, ""},
      {tagged, {206, "bytes 5-7/8", "text/plain", "", "", {}, "gzip"}, AskAgain, {}, ""},
      {blind, {206, "bytes 5-9/10", "", "\"b\"", kModified, 5}, Continue, 10, ""},
      {tagged, {206, "bytes 5-9/10", "", "\"b\"", "", 5}, Refuse, {}, "another state"},
      {blind, {206, "bytes 5-9/10", "", "", kLater, 5}, Refuse, {}, "another state"},
      {tagged, {206, "bytes 0-9/10", "", "\"a\"", "", 10}, Refuse, {}, "from 0 on"},
      {tagged, {206, "bytes 6-9/10", "", "\"a\"", "", 4}, Refuse, {}, "from 6 on"},
      {tagged, {206, "bytes 5-9/10", "", "\"a\"", "", 6}, Refuse, {}, "contradict"},
      {tagged, {206, "", "", "\"a\"", "", 5}, Refuse, {}, "Content-Range"},
      {tagged, {206, "bytes */10", "", "\"a\"", "", 5}, Refuse, {}, "Content-Range"},
      {tagged, {206, "", "Multipart/Byteranges; b=x", "\"a\"", "", 5}, Refuse, {}, "several"},
      {none, {206, "bytes 0-9/10", "", "\"a\"", "", 10}, Refuse, {}, "all was asked"},
      {tagged, {200, "", "", "\"b\"", "", 12}, StartAgain, 12, ""},
      {none, {200, "", "", "", "", {}}, StartAgain, {}, ""},
      {tagged, {416, "bytes */5", "", "", "", 99}, Complete, 5, ""},
      {tagged, {416, "bytes */5", "", "\"b\"", "", 99}, AskAgain, {}, ""},
      {tagged, {416, "bytes */4", "", "", "", 99}, AskAgain, {}, ""},
      {tagged, {416, "bytes */6", "", "", "", 99}, AskAgain, {}, ""},
      {tagged, {416, "", "", "", "", 99}, AskAgain, {}, ""},
      {none, {416, "bytes */0", "", "", "", 0}, Otherwise, {}, ""},
      {tagged, {404, "bytes 5-9/10", "", "", "", 5}, Otherwise, {}, ""},
      {tagged, {304, "", "", "", "", {}}, Otherwise, {}, ""},
  };
  for (const auto& [partial, answer, step, total, why] : kCases) {
    SCOPED_TRACE(std::to_string(answer.status) + " " + answer.contentRange + answer.entityTag);
    const ResumeDecision decision = DecideResume(partial, answer);
    EXPECT_EQ(decision.step, step);
    EXPECT_EQ(decision.total, total);
    EXPECT_NE(decision.error.find(why), std::string::npos) << decision.error;
    EXPECT_EQ(decision.error.empty(), step != Refuse);
  }
}

}  // namespace
}  // namespace netro
