// What the parts of a message are made with. That other decoders get them back is tested in mime/.
#include "Environment.h"
#include "TestKit.h"
#include "platform/CodePage.h"
#include "platform/FileTypes.h"
#include "platform/Folder.h"
#include "support/Base64.h"
#include "support/HtmlText.h"
#include "support/QuotedPrintable.h"

namespace netro {
namespace {

TEST(Base64, EncodesAndDecodes) {
  const std::pair<std::string, std::string> kCases[] = {
      {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},         {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"\xFB\xFF\xFE", "+//+"}};
  for (const auto& [bytes, text] : kCases) {
    EXPECT_EQ(Base64Encode(bytes), text);
    EXPECT_EQ(Base64Decode(text), bytes);
  }
  EXPECT_EQ(Base64Decode(" Zm9v\r\nYm\tE= \r\n"), "fooba");
  EXPECT_EQ(Base64Decode("Zg=\r\n="), "f");
  EXPECT_EQ(Base64Decode(" \r\n"), "");
}

TEST(Base64, RefusesWhatNoEncoderWrites) {
  const std::string kCases[] = {
      "Z",    "Zg",       "Zg=",      "Zg===",   "Zg=A",
      "Z===", "=",        "====",     "Zm9v=",   "Zm8",
      "=Zm8", "Zg==Zg==", "Zm9v====", "Zm-_",    "Zm9!",
      "Zh==", "Zm9=",     "Zm9\v",    "Zm\xE4v", std::string("Zm9\0", 4),
  };
  for (const std::string& text : kCases) EXPECT_EQ(Base64Decode(text), std::nullopt) << text;
}

TEST(Base64, EncodesLines) {
  for (const std::size_t size : {0U, 1U, 56U, 57U, 58U, 113U, 114U, 115U, 5000U}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7);
    std::string expected;
    const std::string text = Base64Encode(bytes);
    for (std::size_t at = 0; at < text.size(); at += 76) expected += text.substr(at, 76) + "\r\n";
    std::string out(Base64LinesSize(size), '?');
    EXPECT_EQ(EncodeBase64Lines(bytes, out.data()), out.data() + out.size());
    EXPECT_EQ(out, expected) << size;
  }
}

TEST(QuotedPrintable, Encodes) {
  const std::string x75(75, 'x');
  const std::pair<std::string, std::string> kCases[] = {
      {"", ""},
      {"1+1=2", "1+1=3D2"},
      {"Gr\xC3\xBC\xC3\x9F"
       "e",
       "Gr=C3=BC=C3=9Fe"},
      {std::string("\0\x7F\x1B", 3), "=00=7F=1B"},
      {"a\nb\rc\r\nd\n\ne\n\r", "a\r\nb\r\nc\r\nd\r\n\r\ne\r\n\r\n"},
      {"a \nb\t\r\n \nc  ", "a=20\r\nb=09\r\n=20\r\nc =20"},
      {".\n..\na.", "=2E\r\n=2E.\r\na."},
      {"From me\nFromage\n>From \nFrom ", "=46rom me\r\nFromage\r\n>From=20\r\nFrom=20"},
      {x75 + "x", x75 + "x"},
      {x75 + "x\nx", x75 + "x\r\nx"},
      {x75 + "xx", x75 + "=\r\nxx"},
      {x75 + " \n", x75 + "=\r\n=20\r\n"},
      {x75 + ".x", x75 + "=\r\n=2Ex"},
      {x75 + "From x", x75 + "=\r\n=46rom x"},
      {x75.substr(2) + "=", x75.substr(2) + "=3D"},
      {x75.substr(3) + "=xx", x75.substr(3) + "=3D=\r\nxx"},
  };
  for (const auto& [text, encoded] : kCases) {
    std::string out = "kept ";
    AppendQuotedPrintable(out, text);
    EXPECT_EQ(out, "kept " + encoded) << text;
  }
}

TEST(CodePage, ConvertsBothWays) {
  const std::tuple<std::string, std::string, std::string> kCases[] = {
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
      {"5 \xE2\x82\xAC", "iso-8859-1"},                          // no place there
      {"5 \xE2\x82\xAC", "us-ascii"},   {"\xFC", "iso-8859-1"},  // no UTF-8
      {"\xC3", "iso-8859-1"},           {"\xFC", "utf-8"},
  };
  for (const auto& [utf8, charSet] : kCases)
    EXPECT_EQ(ConvertFromUtf8(utf8, charSet), std::nullopt) << charSet;
  for (const std::string& none :
       {"no-such-set"s, ""s, "iso-8859-1//TRANSLIT"s, "iso-8859-1\r\nX: y"s, "iso-8859-1\0"s,
        std::string(100'000, 'a'), "utf-16"s /* not for mail */, "utf-32le"s, "ebcdic-us"s})
    EXPECT_EQ(ConvertFromUtf8("a", none), std::nullopt) << none;
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
    const char *all, *ctype, *lang;
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

TEST(Paths, TheOwnNameStandsBehindTheLastFolder) {
  const std::string path = (std::filesystem::path("one.d") / "two" / "three.txt").string();
  EXPECT_EQ(path.substr(OwnNameAt(path)), "three.txt");
  EXPECT_EQ(std::string("one/two.txt").substr(OwnNameAt("one/two.txt")), "two.txt");
  EXPECT_EQ(OwnNameAt("three.txt"), 0u);
}

TEST(FileTypes, ReadsTheSystemsTables) {
  SystemRoot root;
  root.Put("etc/mime.types",
           "# image/wrong png\n"
           "image/x-mine\tpng PNX # gone\r\n"
           "application/later pnx\n"
           "application/none\n"
           "message/rfc822 eml\n"
           "no-type one\n"
           "a/b/c two\n"
           "text/bad;charset=x three\n"
           "application/last last");
  root.Put("usr/share/mime/globs2",
           "# comment\n50:image/other:*.png\n50:application/x-tgz:*.tar.gz:cs\n"
           "60:text/x-make:makefile\n50:text/x-c:*.c:cs\n50:text/x-glob:*.[ab]\nnonsense\n::\n");
  const std::pair<const char*, const char*> kCases[] = {
      {"png", "image/x-mine"}, {"pnx", "image/x-mine"},         {"last", "application/last"},
      {"c", "text/x-c"},       {"tar.gz", "application/x-tgz"}, {"pdf", "application/pdf"}};
  for (const auto& [extension, type] : kCases) EXPECT_EQ(ContentTypeOf(extension), type);
  // A message must not be encoded; the others are no types or no names.
  for (const char* none : {"eml", "one", "two", "three", "[ab]", "", "nosuch"})
    EXPECT_EQ(ContentTypeOf(none), "") << none;
  const SystemRoot empty;
  EXPECT_EQ(ContentTypeOf("png"), "image/png");
  EXPECT_EQ(ContentTypeOf("c"), "");
}

TEST(HtmlText, TakesTheText) {
  const std::pair<std::string, std::string> kCases[] = {
      // the body
      {"<html><head><title>T</title></head><body>b</body>after</html>", "b"},
      {"x<BODY bgcolor=\"a>b\" title='>'>in</Body >out", "in"},
      {"before<bodyguard>after", "beforeafter"},
      {"<!-- <body> -->a<body>b<body>c</body>d", "bc"},
      {"a</body>b", "ab"},
      {"<title>T</title>text", "text"},
      // what is dropped
      {"a<script>if (1 < 2) '<b>';</script>b<STYLE>p{}</sTyLe >c", "abc"},
      {"a<script></scripture></script>b", "ab"},
      {"a<!-- x > y -->b<!---->c<!-->d<!doctype html>e<?xml ?>f", "abcdef"},
      {"<!--[if mso]>m<![endif]-->a<!--[if !mso]><!-->b<!--<![endif]-->", "ab"},
      {"<a href='x>y' title=\"a'b>c\">link</a>", "link"},
      {"<p title=it's>one</p><p>it's</p>", "one\r\n\r\nit's"},
      {"<a b=\"never closed>text", "text"},
      // what is not closed
      {"a<script>b", "a"},
      {"a<!-- b", "a"},
      {"1 < 2 > 0 <3 </ >", "1 < 2 > 0 <3 </ >"},
      // white space and lines
      {"a<br>b<br/>c<BR />d", "a\r\nb\r\nc\r\nd"},
      {"<p>a</p>\n<p>b</p>", "a\r\n\r\nb"},
      {"<h1>a</h1>b<div>c</div><div><div>d</div></div>e", "a\r\n\r\nb\r\nc\r\nd\r\ne"},
      {"<ul><li>a</li><li>b</li></ul>c", "a\r\nb\r\n\r\nc"},
      {"<table><tr><td>a</td><td>b</td></tr><tr><td>c</table>", "a b\r\nc"},
      {"<pre>\n a\n  b\r\n\n</pre> c  d", " a\r\n  b\r\n\r\nc d"},
      // entities
      {"a&nbsp;b &nbsp; c", "a b c"},
      {"&lt;b&gt; &amp;amp; &quot;&apos;", "<b> &amp; \"&apos;"},
      {"&auml;&Auml;&euro;&thetasym;&hellip;", "\xC3\xA4\xC3\x84\xE2\x82\xAC\xCF\x91\xE2\x80\xA6"},
      {"&#228;&#xE4;&#X1F600;&#150;", "\xC3\xA4\xC3\xA4\xF0\x9F\x98\x80\xE2\x80\x93"},
      {"&#0;&#xD800;&#x110000;&#999999999;", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"a&#13;&#10;b", "a b"},
      {"& && AT&T &; &# ; &#; &#x; &#-1; &nosuch; &amp",
       "& && AT&T &; &# ; &#; &#x; &#-1; &nosuch; &amp"},
      {"gr\xC3\xBC\xC3\x9F", "gr\xC3\xBC\xC3\x9F"},
  };
  for (const auto& [html, text] : kCases) EXPECT_EQ(HtmlToText(html), text) << html;
}

// Each of these took quadratic time somewhere once an end is looked for and not found.
TEST(HtmlText, IsLinear) {
  const std::string kParts[] = {
      "<", "<a ", "<a b=\"", "<a b='\"",   "<!",        "<!--",   "<script>", "</",    "</a",
      "&", "&#",  "<p>",     "<script></", "<a b=\"c>", "<body>", "<br>",     "<![a]", "<pre>\n "};
  for (const std::string& part : kParts) {
    std::string html;
    while (html.size() < 2'000'000) html += part;
    EXPECT_LE(HtmlToText(html).size(), html.size()) << part;
    EXPECT_LE(HtmlToText("<body a='" + html).size(), html.size()) << part;
  }
}

}  // namespace
}  // namespace netro
