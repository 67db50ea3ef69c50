// The plain text of HTML as mail programs write it, and of what is broken.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "support/HtmlText.h"

namespace netro {
namespace {

TEST(HtmlText, TakesTheText) {
  const struct {
    std::string html;
    std::string text;
  } kCases[] = {
      {"", ""},
      {"just text", "just text"},
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
      {"a<b", "a"},
      {"a <", "a <"},
      {"1 < 2 > 0 <3 </ >", "1 < 2 > 0 <3 </ >"},
      // white space and lines
      {"  a \r\n\t b  ", "a b"},
      {"a<b> b</b> c", "a b c"},
      {"a<br>b<br/>c<BR />d", "a\r\nb\r\nc\r\nd"},
      {"a<br><br>b<br>", "a\r\n\r\nb"},
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
  for (const auto& [html, text] : kCases) {
    EXPECT_EQ(HtmlToText(html), text) << html;
  }
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
