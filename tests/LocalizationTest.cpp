// The message table and the filling of its placeholders.
#include <netro/Localization.h>

#include "TestKit.h"

namespace netro {
namespace {

using Arguments = std::vector<std::string>;

TEST(Localization, HoldsEveryMessage) {
  int texts = 0;
  for (std::int32_t number = -70000; number <= 140000; ++number)
    texts += GetMessageText(number).empty() ? 0 : 1;
  EXPECT_EQ(texts, 215);
  EXPECT_EQ(GetMessageText(INT32_MIN) + GetMessageText(INT32_MAX), "");
}

// One of each part of the table, and those that a change of spelling would break.
TEST(Localization, KeepsTextsExactly) {
  const std::pair<std::int32_t, const char*> kCases[] = {
      {101, "English"},
      {2008, "<no subject>"},
      {3502, "Localname part of address is not like '?\?*.?\?*'"},
      {5001, "Error while writing mime file '%1'. System Message: '%2' "},
      {6009, "10:0,15:220,20:220,20:250,30:250,40:250,50:354,50:250,60:250,70:221,70:250,70:550"},
      {7205, "SOCKSProlog"},
      {10032, "Invalid NCB Address, or Length > Segment"},
      {11005, "Unknown time stamp received"},
  };
  for (const auto& [number, text] : kCases) EXPECT_EQ(GetMessageText(number), text) << number;
}

TEST(Localization, FillsPlaceholders) {
  const std::tuple<std::int32_t, Arguments, const char*> kCases[] = {
      {7001, {"SMTP", "Connect"}, "[SMTP] Timeout while 'Connect'."},
      {7004, {"one"}, "[one] %2"},
      {7004, {}, "[%1] %2"},
      {7004, {"", ""}, "[] "},
      {7008, {"a", "not used"}, "Canceled while 'a'."},
      {1000, {"h"}, "Can not ping to check host 'h'. Result: 'h'. Application aborted."},
      {7500, {"a", "b", "c"}, "Can not connect to 'a'. Socket Error# 'b'. c"},
      // An argument with a later placeholder is filled in, one with an earlier one is not.
      {7004, {"%2", "x"}, "[x] x"},
      {7004, {"x", "%1"}, "[x] %1"},
      // Its own placeholder stays, also when putting it in makes a new one.
      {7004, {"%1", "b"}, "[%1] b"},
      {10127, {"%%11"}, "Unknown Error# %%11."},
      // "%1" is also found in front of other digits.
      {7004, {"%3", "b", "%10"}, "[%10] b"},
      {7004, {"%20", "b"}, "[b0] b"},
      {7004, {"a", "%10"}, "[a] %10"},
      {7008, {"%2%10", "b", "c", "d", "e", "f", "g", "h", "i", "j"}, "Canceled while 'bj'."},
  };
  for (const auto& [number, arguments, text] : kCases)
    EXPECT_EQ(GetMessageText(number, arguments), text);
}

TEST(Localization, LongArgumentOfPlaceholdersEnds) {
  std::string hostile;
  for (int i = 0; i < 500000; ++i) hostile += "%1";
  EXPECT_EQ(GetMessageText(10127, {hostile}), "Unknown Error# " + hostile + ".");
}

}  // namespace
}  // namespace netro
