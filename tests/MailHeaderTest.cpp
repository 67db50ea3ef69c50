// Header fields: what stays, what is encoded, and the addresses in them. Where lines end, and that
// another decoder gets back the values, is tested in mime/ and by the fuzz target.
#include "TestKit.h"
#include "mail/AddressSyntax.h"
#include "mail/MailAddress.h"
#include "support/MailHeader.h"
#include "support/Text.h"

namespace netro {
namespace {

TEST(MailHeader, WritesTextFields) {
  const std::string x66(66, 'x');
  const std::pair<std::string, std::string> kCases[] = {
      {"", "Subject: \r\n"},
      {"plain, <text> (here)", "Subject: plain, <text> (here)\r\n"},
      {"a\r\nBcc: b\nc\td" + std::string(1, '\0') + "e", "Subject: a  Bcc: b c d e\r\n"},
      {"\r\n a \r\n", "Subject: a\r\n"},
      {"=?utf-8?Q?ready?=", "Subject: =?utf-8?Q?ready?=\r\n"},
      {"Gr\xC3\xBC\xC3\x9F"
       "e",
       "Subject: =?utf-8?B?R3LDvMOfZQ==?=\r\n"},
      {"what is the price in \xE2\x82\xAC, _?",
       "Subject: =?utf-8?Q?what_is_the_price_in_=E2=82=AC=2C_=5F=3F?=\r\n"},
      {"this is not UTF-8: \xFF", "Subject: =?utf-8?Q?this_is_not_UTF-8=3A_=EF=BF=BD?=\r\n"},
      {x66 + " ab", "Subject: " + x66 + " ab\r\n"},
      {x66 + " abc", "Subject: " + x66 + "\r\n abc\r\n"},
      {x66 + x66 + "  b", "Subject: " + x66 + x66 + "\r\n  b\r\n"},
  };
  for (const auto& [value, field] : kCases) {
    std::string out;
    AppendTextField(out, "Subject", value);
    EXPECT_EQ(out, field) << value;
  }
}

TEST(MailHeader, WritesAddressFields) {
  const std::string j = "=?utf-8?B?SsO2cmc=?=";
  const std::string oe = "\xC3\xB6";
  const std::pair<std::string, std::string> kCases[] = {
      {"", ""},
      {"a@b.c,d@e.f , \"X, Y\" <g@h.i>", "a@b.c,d@e.f , \"X, Y\" <g@h.i>"},
      {"a@b.c; d@e.f ;", "a@b.c, d@e.f"},
      {",a@b.c,,\"x;y\" <d@e.f>;", "a@b.c, \"x;y\" <d@e.f>"},
      {"Undisclosed recipients:;", "Undisclosed recipients:;"},
      {"J" + oe + "rg <j@x.y>", j + " <j@x.y>"},
      {"J" + oe + "rg<j@x.y>,b@x.y", j + " <j@x.y>, b@x.y"},
      {"\"J" + oe + "rg\" <j@x.y>", j + " <j@x.y>"},
      {"\"J" + oe + ", \\\"Q\\\"\" <j@x.y>", "=?utf-8?B?SsO2LCAiUSI=?= <j@x.y>"},
      {"j@x.y (J" + oe + "rg), a@b.c (plain (nested))",
       "j@x.y (" + j + "), a@b.c (plain (nested))"},
      {"J" + oe + "rg", j},
      {"J" + oe + "rg <\"odd>,\"@[IPv6:::1]>, x@[IPv6:::2]",
       j + " <\"odd>,\"@[IPv6:::1]>, x@[IPv6:::2]"},
      {"j" + oe + "rg@x.y", "j" + oe + "rg@x.y"},
      {"a@b.c\r\nBcc: d@e.f", "a@b.c  Bcc: d@e.f"},
      {"J" + oe + "rg <never closed", j + " <never closed"},
      {"J" + oe + " (never \\", "=?utf-8?B?SsO2?= (never \\"},
  };
  for (const auto& [value, field] : kCases) {
    std::string out;
    AppendAddressField(out, "To", value);
    EXPECT_EQ(out, "To: " + field + "\r\n") << value;
  }
}

TEST(MailHeader, WritesParameters) {
  const auto parameter = [](std::string_view value) {
    std::string out = "A: b";
    AppendParameter(out, "name", value);
    return out;
  };
  EXPECT_EQ(parameter("a b.txt"), "A: b;\r\n\tname=\"a b.txt\"");
  EXPECT_EQ(parameter("\xC3\xBC \"\r\n.txt"), "A: b;\r\n\tname*0*=utf-8''%C3%BC%20%22%20%20.txt");
}

TEST(ExtractAddress, FindsTheParts) {
  const struct {
    std::string text, local, host, name;
  } kCases[] = {
      {"a@x.test", "a", "x.test", ""},
      {" \t<a@x.test>\r\n", "a", "x.test", ""},
      {"Jane Doe <jane@x.test>", "jane", "x.test", "Jane Doe"},
      {"\"Doe, Jane\" < jane@x.test >", "jane", "x.test", "Doe, Jane"},
      {R"("Jane \"J\" \\ Doe" <jane@x.test>)", "jane", "x.test", R"(Jane "J" \ Doe)"},
      {"\"a\" b \"c\" <jane@x.test>", "jane", "x.test", "a b c"},
      {"Doe, Jane <jane@x.test>", "jane", "x.test", "Doe, Jane"},
      {"J\xC3\xBCrgen <j@m\xC3\xBCller.test>", "j", "m\xC3\xBCller.test", "J\xC3\xBCrgen"},
      // Comments go wherever they stand; inside quotes they are none.
      {"jane(home (and (so) on))@x.test(\\))", "jane", "x.test", ""},
      {"Jane (Doe) <jane@(here)x.test> (home)", "jane", "x.test", "Jane"},
      {"\"(Jane)\" <\"a(b)\"@x.test>", "\"a(b)\"", "x.test", "(Jane)"},
      // Quoted local parts may hold every mark.
      {"\"a b\"@x.test", "\"a b\"", "x.test", ""},
      {R"("a@b,<c>;\"d"@x.test)", R"("a@b,<c>;\"d")", "x.test", ""},
      {"<\"a@b\">", "\"a@b\"", "", ""},
      // A quote that nothing closes is a character.
      {"\"Jane <jane@x.test>", "jane", "x.test", "\"Jane"},
      {"a@b@x.test", "a@b", "x.test", ""},
      {"a@[1.2.3.4]", "a", "[1.2.3.4]", ""},
      {"@x.test", "", "x.test", ""},
      {"a@", "a", "", ""},
      {"nobody", "nobody", "", ""},
  };
  for (const auto& [text, local, host, name] : kCases) {
    SCOPED_TRACE(text);
    const MailAddress found = ExtractAddress(text);
    EXPECT_EQ(found.local, local);
    EXPECT_EQ(found.host, host);
    EXPECT_EQ(found.displayName, name);
    const bool hasAt = text.find_last_of('@') != text.npos && found.address != local;
    EXPECT_EQ(found.address, hasAt ? local + "@" + host : local);
  }
}

TEST(ExtractAddress, NothingWhereSeveralCouldBeMeant) {
  for (const char* text :
       {"", " \r\n", "(a@x.test)", "<>", "Jane <>", "a@x.test, b@x.test", "a@x.test;",
        "A <a@x.test>, B <b@x.test>", "<a@x.test>, b@x.test", "a@x.test <b@x.test> c",
        "<<a@x.test>>", "<a@x.test", "a@x.test>", ">a@x.test<", "<a@x.test,b@x.test>",
        "a@x.test (open", "a(b(c)@x.test"}) {
    const MailAddress found = ExtractAddress(text);
    EXPECT_EQ(found.address + found.local + found.host, "") << text;
  }
}

TEST(SplitAddressList, SeparatesOutsideQuotesCommentsAndBrackets) {
  const std::pair<const char*, std::vector<std::string>> kCases[] = {
      {"", {}},
      {"a@x.test", {"a@x.test"}},
      {"a@x.test,b@x.test;\r\n c@x.test,", {"a@x.test", "b@x.test", "c@x.test"}},
      {"\"Doe, Jane\" <a@x.test>, B <b@x.test>", {"\"Doe, Jane\" <a@x.test>", "B <b@x.test>"}},
      {R"("a,\";" <a@x.test>;b@x.test)", {R"("a,\";" <a@x.test>)", "b@x.test"}},
      {"a@x.test (one, (two); three), b@x.test", {"a@x.test (one, (two); three)", "b@x.test"}},
      {"A <@r,@s:a@x.test>, a@[IPv6:1:;2], b@x.test",
       {"A <@r,@s:a@x.test>", "a@[IPv6:1:;2]", "b@x.test"}},
      {"\"open <a@x.test>, b@x.test", {"\"open <a@x.test>", "b@x.test"}},
      {"[team] A <a@x.test>, [b <b@x.test>, c@x.test",
       {"[team] A <a@x.test>", "[b <b@x.test>", "c@x.test"}},
      // Groups lose their names.
      {"undisclosed:;", {}},
      {"u: a@x.test, B <b@x.test>; c@x.test, \"v:w\" : d@x.test;",
       {"a@x.test", "B <b@x.test>", "c@x.test", "d@x.test"}},
      // What is never closed stays in one piece, which is no address.
      {"a@x.test, <b@x.test, c@x.test", {"a@x.test", "<b@x.test, c@x.test"}},
      {"a@x.test (b@x.test, c@x.test", {"a@x.test (b@x.test, c@x.test"}},
      {"a@[1.2.3.4, b@x.test", {"a@[1.2.3.4, b@x.test"}},
  };
  for (const auto& [text, elements] : kCases) EXPECT_EQ(SplitAddressList(text), elements) << text;
}

// A million brackets that go deeper and deeper, or quotes that look for their end each time anew.
TEST(SplitAddressList, HostileTextTakesLinearTime) {
  for (const std::string piece : {"(", "<", "\"", "\\\"", "[", "a@[", "(\"", "<\"(", "\"<", ":,"}) {
    std::string text;
    while (text.size() < 1'000'000) text += piece;
    const auto begin = std::chrono::steady_clock::now();
    ExtractAddress(text);
    SplitAddressList(text);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << piece;
  }
}

// Rule 2 has the pattern ??*.??*; 3, 6 and 7 are about address literals, 9 about controls.
TEST(AddressSyntax, RulesInTheirOrder) {
  const std::pair<std::int32_t, std::vector<std::string>> kCases[] = {
      {0,
       {"a@xy.de", "a@x.yz.de", "a@...de", "a@xy.de.", "a@[999.2.3.4000]", "a@[...]",
        "a\x80\xFF@xy.de", "\"a b\"@xy.de", "Jane\x01 (c\x7F) <a(b)@xy.de>"}},
      {1, {""}},
      {2,
       {" ", "Jane <>", "a@xy.de, b@xy.de", "a@host", "a@x.de", "a@xy.d", "a@xy.", "a@.xy",
        "a@..de", "@x"}},
      {3, {"a@[1.2.3.x]", "a@[1.2.3.4 ]"}},
      {4, {"nobody", "a@", "@"}},
      {6, {"a@[1.2.3.4", "a@["}},
      {7, {"a@[1.2.3]", "a@[1.2.3.4.5]", "a@[1.2.x]"}},
      {8, {"@[1.2.3.4]", "@xy.de"}},
      {9, {"a\x7F@xy.de", "a\x1F@xy.de", "a\t@xy.de", "a\0b@xy.de"s}},
  };
  for (const auto& [rule, texts] : kCases) {
    for (const std::string& text : texts) EXPECT_EQ(CheckAddressSyntax(text, ""), rule) << text;
  }
  const struct {
    const char *text, *domains;
    std::int32_t rule;
  } kDomains[] = {{"a@xy.de", "com,de", 0},    {"a@xy.DE", "com,de", 0}, {"a@xy.de", "com,den", 5},
                  {"a@xy.com", "com.,org", 5}, {"@xy.de", "com", 5},     {"a@[1.2.3.4]", "com", 0}};
  for (const auto& c : kDomains) EXPECT_EQ(CheckAddressSyntax(c.text, c.domains), c.rule) << c.text;
}

}  // namespace
}  // namespace netro
