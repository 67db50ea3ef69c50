// Character sets through the system's tables, and the one of the locale.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

#include "Environment.h"
#include "platform/CodePage.h"

namespace netro {
namespace {

using namespace std::string_literals;

TEST(CodePage, ConvertsBothWays) {
  const struct {
    std::string utf8;
    std::string charSet;
    std::string text;
  } kCases[] = {
      {"plain", "us-ascii", "plain"},
      {"gr\xC3\xBC\xC3\x9F", "iso-8859-1", "gr\xFC\xDF"},
      {"5 \xE2\x82\xAC", "ISO-8859-15", "5 \xA4"},
      {"5 \xE2\x82\xAC\r\n", "windows-1252", "5 \x80\r\n"},
      {"\xD0\xBC\xD0\xB8\xD1\x80", "koi8-r", "\xCD\xC9\xD2"},
      {"\xE6\x97\xA5", "iso-2022-jp", "\x1B$BF|\x1B(B"},  // ends in the first shift state
      {"gr\xC3\xBC\xC3\x9F", "UTF-8", "gr\xC3\xBC\xC3\x9F"},
      {"a\0b"s, "iso-8859-1", "a\0b"s},
      {"", "iso-8859-1", ""},
  };
  for (const auto& [utf8, charSet, text] : kCases) {
    EXPECT_EQ(ConvertFromUtf8(utf8, charSet), text) << charSet;
    EXPECT_EQ(ConvertToUtf8(text, charSet), utf8) << charSet;
  }
  std::string wide;
  std::string narrow;
  for (int i = 0; i < 30'001; ++i) wide += "\xC3\xBC", narrow += "\xFC";
  EXPECT_EQ(ConvertFromUtf8(wide, "iso-8859-1"), narrow);
  EXPECT_EQ(ConvertToUtf8(narrow, "iso-8859-1"), wide);
}

TEST(CodePage, RefusesWhatCannotBeConverted) {
  const std::pair<std::string, std::string> kCases[] = {
      {"5 \xE2\x82\xAC", "iso-8859-1"},  // no place there
      {"5 \xE2\x82\xAC", "us-ascii"},
      {"\xFC", "iso-8859-1"},  // no UTF-8
      {"\xC3", "iso-8859-1"},
      {"\xFC", "utf-8"},
      {"a", "no-such-set"},
      {"a", ""},
      {"a", "iso-8859-1//TRANSLIT"},
      {"a", "iso-8859-1\r\nX: y"},
      {"a", "iso-8859-1\0"s},
      {"a", std::string(100'000, 'a')},
      {"a", "utf-16"},  // not for mail
      {"a", "utf-32le"},
      {"a", "ebcdic-us"},
  };
  for (const auto& [utf8, charSet] : kCases) {
    EXPECT_EQ(ConvertFromUtf8(utf8, charSet), std::nullopt) << charSet;
  }
  EXPECT_EQ(ConvertToUtf8("\x80", "us-ascii"), std::nullopt);
}

TEST(CodePage, MakesUtf8OfAnything) {
  EXPECT_EQ(ToUtf8("5 \xA4", "iso-8859-15"), "5 \xE2\x82\xAC");
  EXPECT_EQ(ToUtf8("gr\xFC\xDF", "utf-8"), "gr\xC3\xBC\xC3\x9F");
  EXPECT_EQ(ToUtf8("gr\xFC\xDF", "no-such-set"), "gr\xC3\xBC\xC3\x9F");
}

// Locales that are not installed are known by their names.
TEST(CodePage, KnowsTheSetOfTheLocale) {
  const struct {
    const char* all;
    const char* ctype;
    const char* lang;
    std::string charSet;
  } kCases[] = {
      {nullptr, nullptr, nullptr, "utf-8"},
      {nullptr, nullptr, "C", "utf-8"},
      {nullptr, nullptr, "C.UTF-8", "utf-8"},
      {nullptr, nullptr, "xx_XX.ISO-8859-15@euro", "iso-8859-15"},
      {nullptr, "xx_XX.iso88592", "C", "iso-8859-2"},
      {"C", "xx_XX.iso88592", "xx_XX.iso88592", "utf-8"},
      {"", "", "xx_XX.KOI8-R", "koi8-r"},
      {nullptr, nullptr, "xx_XX.CP1251", "windows-1251"},
      {nullptr, nullptr, "xx_XX.SJIS", "shift_jis"},
      {nullptr, nullptr, "xx_XX.nonsense\r\nX: y", "utf-8"},
      {nullptr, nullptr, "xx_XX", "utf-8"},
  };
  for (const auto& [all, ctype, lang, charSet] : kCases) {
    const Environment a("LC_ALL", all);
    const Environment b("LC_CTYPE", ctype);
    const Environment c("LANG", lang);
    EXPECT_EQ(LocaleCharSet(), charSet) << (lang == nullptr ? "none" : lang);
  }
}

}  // namespace
}  // namespace netro
