// The helpers for texts, bytes and names, above all at their edges; and the table of messages.
#include <netro/Localization.h>

#include <cctype>
#include <limits>
#include <random>

#include "TestKit.h"
#include "support/ByteReader.h"
#include "support/ByteWriter.h"
#include "support/NameIndex.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

TEST(Text, LowersAsciiLettersOnly) {
  EXPECT_EQ(ToLower("AZaz@[`{09"), "azaz@[`{09");
  EXPECT_EQ(ToLower("\xC4\xD6\xDC"), "\xC4\xD6\xDC");
  EXPECT_EQ(ToLower(std::string_view("A\0B", 3)), std::string_view("a\0b", 3));
}

TEST(Text, ComparesWithoutCase) {
  const struct {
    std::string_view a, b;
    bool equal, prefix;
  } kCases[] = {
      {"Content-Length", "cONTENT-lENGTH", true, true},
      {"", "", true, true},
      {"a", "", false, true},
      {"", "a", false, false},
      {"Digest realm", "digest ", false, true},
      {"dig", "digest", false, false},
      {"[", "{", false, false},
      {"@", "`", false, false},
      {"\xC4", "\xE4", false, false},
      {std::string_view("a\0b", 3), std::string_view("A\0C", 3), false, false},
  };
  for (const auto& [a, b, equal, prefix] : kCases) {
    EXPECT_EQ(EqualsIgnoreCase(a, b), equal) << a << " / " << b;
    EXPECT_EQ(StartsWithIgnoreCase(a, b), prefix) << a << " / " << b;
  }
}

TEST(Text, TrimsSplitsAndFindsLineEnders) {
  EXPECT_EQ(Trim(" \t "), "");
  EXPECT_EQ(Trim("\t a b\t "), "a b");
  EXPECT_EQ(Trim(" a\r\n"), "a\r\n");
  using Parts = std::vector<std::string>;
  EXPECT_EQ(Split("", ','), Parts({""}));
  EXPECT_EQ(Split("a,,b c,", ','), Parts({"a", "", "b c", ""}));
  EXPECT_EQ(Split(std::string_view("a\0b", 3), '\0'), Parts({"a", "b"}));
  for (const std::string& text : {"a\r"s, "\na"s, "a\0b"s}) EXPECT_TRUE(HasControl(text)) << text;
  for (const std::string& text : {""s, "a\tb\x7F\x80"s}) EXPECT_FALSE(HasControl(text)) << text;
}

TEST(Text, FiltersCharacters) {
  EXPECT_EQ(CharFilter("a\x1F b\x7F\xFF\n", 31, 255), "a b\x7F\xFF");
  EXPECT_EQ(CharFilter("a1\x80", '1', 127), "a");
  EXPECT_EQ(CharFilter(std::string_view("\0a", 2), -1, 255), std::string_view("\0a", 2));
  EXPECT_EQ(CharFilter("abc", 300, 255), "");
}

TEST(Text, KnowsUtf8) {
  const std::string kGood[] = {
      "", std::string("plain ASCII that is long\0", 25),
      "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
      "0123456\xC3\xBC"
      "0123456789"};
  // Cut; without its rest; longer than need be; a surrogate; beyond the last.
  const std::string kBad[] = {
      "0123456\xC3",  "\xE2\x82",         "\xF0\x9F\x98",     "\x80",         "\xC3(",
      "\xE2\x82(",    "\xC0\x80",         "\xC1\xBF",         "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",
      "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"};
  for (const std::string& text : kGood) EXPECT_TRUE(IsUtf8(text)) << text;
  for (const std::string& text : kBad) EXPECT_FALSE(IsUtf8(text)) << text;
  EXPECT_TRUE(IsAscii("0123456789"));
  EXPECT_FALSE(IsAscii("0123456789\x80"));
}

TEST(ShownText, HidesNothingAndTurnsNothing) {
  const std::pair<std::string, std::string> kCases[] = {
      {"a long line of ASCII, ~ and \t tab\r\nnext\nlast",
       "a long line of ASCII, ~ and \t tab\nnext\nlast"},
      {"lone \r", "lone \\x0D"},
      {"12345678\x1B[31m", "12345678\\x1B[31m"},
      {"1234567\x7F"
       "12345678\x1F",
       "1234567\\x7F12345678\\x1F"},
      {std::string("NUL \0", 5), "NUL \\x00"},
      {"\xC2\x80\xC2\x9F\xC2\xA0", "\\xC2\\x80\\xC2\\x9F\xC2\xA0"},
      {"\xC3\xA4\xFF\x9B\xE2\x82", "\xC3\xA4\\xFF\\x9B\\xE2\\x82"},
  };
  for (const auto& [text, shown] : kCases) EXPECT_EQ(ShownText(text), shown);
  std::string turned;
  for (char32_t character = 0xA0; character < 0x11000; ++character) {
    std::string text;
    AppendUtf8(text, character);
    EXPECT_EQ(ShownText(text) == text, IsHarmlessText(text)) << text;
    if (ShownText(text) != text) turned += ShownText(text);
  }
  EXPECT_EQ(turned,
            "\\u061C\\u200E\\u200F\\u2028\\u2029\\u202A\\u202B\\u202C\\u202D\\u202E\\u2066\\u2067\\"
            "u2068\\u2069");
}

TEST(Text, WritesUtf8) {
  std::string out;
  for (const char32_t c : {0x7FU, 0x80U, 0x7FFU, 0x800U, 0xFFFFU, 0x10000U, 0x10FFFFU})
    AppendUtf8(out, c);
  EXPECT_EQ(out, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
  out.clear();
  for (const char32_t c : {0xD800U, 0xDFFFU, 0x110000U}) AppendUtf8(out, c);
  EXPECT_EQ(out, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(Latin1ToUtf8("a\xFC"), "a\xC3\xBC");
}

TEST(Text, KnowsHostNames) {
  const std::string label(63, 'a');
  const std::string longest = label + "." + label + "." + label + "." + label;  // 255 characters
  for (const std::string& text : {"localhost"s, "WWW.Example.org"s, "_sip._tcp.a-b.example"s,
                                  "192.0.2.7"s, "example.org."s, label + ".org", longest})
    EXPECT_TRUE(IsHostName(text)) << text;
  for (const std::string& text :
       {""s, "."s, ".org"s, "a..b"s, "a.."s, "a b"s, "a/b"s, "a:80"s, "a|b"s, "m\xFCnchen.example"s,
        "a\0b"s, label + "a.org", longest + "."})
    EXPECT_FALSE(IsHostName(text)) << text;
}

const Bytes kBytes = {0x81, 0xFE, 0x02, 0x83, 0x04, 0x05, 0xFF, 'x', 'y'};

TEST(ByteReader, ReadsBigEndianInOrder) {
  ByteReader reader(kBytes);
  EXPECT_EQ(reader.U8(), 0x81);
  EXPECT_EQ(reader.U16(), 0xFE02);
  EXPECT_EQ(reader.U32(), 0x830405FFU);
  EXPECT_EQ(reader.Position(), 7U);
  EXPECT_EQ(reader.Remaining(), 2U);
  const auto rest = reader.Take(2);
  EXPECT_EQ(Bytes(rest.begin(), rest.end()), Bytes({'x', 'y'}));
  EXPECT_EQ(reader.Remaining(), 0U);
  EXPECT_TRUE(reader.Take(0).empty());
  reader.Skip(0);
  EXPECT_TRUE(reader.Ok());
}

TEST(ByteReader, EveryReadPastTheEndFailsForGood) {
  constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();
  const struct {
    const char* name;
    std::size_t left;
    void (*read)(ByteReader&);
  } kCases[] = {
      {"U8", 0, [](ByteReader& r) { EXPECT_EQ(r.U8(), 0); }},
      {"U16", 1, [](ByteReader& r) { EXPECT_EQ(r.U16(), 0); }},
      {"U32", 3, [](ByteReader& r) { EXPECT_EQ(r.U32(), 0U); }},
      {"Take", 3, [](ByteReader& r) { EXPECT_TRUE(r.Take(4).empty()); }},
      {"Take huge", 3, [](ByteReader& r) { EXPECT_TRUE(r.Take(kHuge).empty()); }},
      {"Skip", 3, [](ByteReader& r) { r.Skip(4); }},
      {"Skip huge", 3, [](ByteReader& r) { r.Skip(kHuge); }},
  };
  for (const auto& [name, left, read] : kCases) {
    SCOPED_TRACE(name);
    // An exact copy, so that a checked build notices a read behind its end.
    const Bytes bytes(kBytes.begin(), kBytes.begin() + 4);
    ByteReader reader(bytes);
    reader.Skip(bytes.size() - left);
    ASSERT_TRUE(reader.Ok());
    read(reader);
    EXPECT_FALSE(reader.Ok());
    EXPECT_EQ(reader.Remaining(), 0U);
    EXPECT_EQ(reader.U8() + reader.U16() + reader.U32() + reader.Take(1).size(), 0U);
    reader.Skip(0);
    EXPECT_FALSE(reader.Ok());
  }
}

TEST(ByteWriter, WritesBigEndianInOrder) {
  ByteWriter writer;
  writer.U8(0xFF);
  writer.U16(0x8002);
  writer.Append(Bytes{1, 0, 2});
  writer.Append({});
  writer.Text("a\xE4");
  const Bytes expected = {0xFF, 0x80, 0x02, 1, 0, 2, 'a', 0xE4};
  EXPECT_EQ(writer.Data(), expected);
  EXPECT_EQ(writer.Take(), expected);
  EXPECT_TRUE(writer.Data().empty());
}

struct NameOf {
  std::string_view operator()(const std::string* item) const { return *item; }
};
using Index = NameIndex<const std::string*, NameOf>;

std::string InCapitals(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  });
  return text;
}

TEST(NameIndex, FindsWithoutCase) {
  Index index;
  EXPECT_EQ(index.Find("a"), nullptr);
  const std::string first = "First", empty;
  index.Add(&first);
  index.Add(&empty);
  ASSERT_NE(index.Find("fIRST"), nullptr);
  EXPECT_EQ(*index.Find("fIRST"), &first);
  EXPECT_EQ(*index.Find(""), &empty);
  EXPECT_EQ(index.Find("Firs"), nullptr);
  index.Remove("FIRST");
  EXPECT_EQ(index.Find("First"), nullptr);
  EXPECT_EQ(*index.Find(""), &empty);
  index.Clear();
  EXPECT_EQ(index.Find(""), nullptr);
  index.Add(&first);
  EXPECT_EQ(*index.Find("first"), &first);
}

TEST(NameIndex, AgreesWithAMap) {
  std::mt19937 random(1);
  for (const unsigned names : {3u, 10u, 100u, 1000u}) {
    Index index;
    std::map<std::string, std::string> map;  // the items too: they stay where they are
    for (unsigned step = 0; step < 30 * names; ++step) {
      const std::string name = "n" + std::to_string(random() % names);
      if (const auto found = map.find(name); found != map.end()) {
        index.Remove(InCapitals(name));
        map.erase(found);
      } else {
        index.Add(&map.emplace(name, InCapitals(name)).first->second);
      }
      for (unsigned i = 0; step % (names / 3) == 0 && i < names; ++i) {
        const std::string other = "n" + std::to_string(i);
        const auto* const item = index.Find(other);
        ASSERT_EQ(item != nullptr, map.contains(other)) << other << " of " << names;
        if (item != nullptr) {
          ASSERT_EQ(*item, &map[other]);
        }
      }
    }
  }
}

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
