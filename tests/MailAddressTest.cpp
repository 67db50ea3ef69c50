// Mail addresses: what is taken out of header text, how lists are taken apart, and the rules of the
// syntax.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "mail/AddressSyntax.h"
#include "mail/MailAddress.h"

namespace netro {
namespace {

using namespace std::string_literals;

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
      {"smile :) <a@x.test>", "a", "x.test", "smile :)"},
      // Quoted local parts may hold every mark.
      {"\"a b\"@x.test", "\"a b\"", "x.test", ""},
      {R"("a@b,<c>;\"d"@x.test)", R"("a@b,<c>;\"d")", "x.test", ""},
      {"<\"a@b\">", "\"a@b\"", "", ""},
      // A quote that nothing closes is a character.
      {"\"Jane <jane@x.test>", "jane", "x.test", "\"Jane"},
      {"a@b@x.test", "a@b", "x.test", ""},
      {"a@[1.2.3.4]", "a", "[1.2.3.4]", ""},
      {"a\t@ x.test", "a\t", " x.test", ""},
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
  const struct {
    const char* text;
    std::vector<std::string> elements;
  } kCases[] = {
      {"", {}},
      {" , ;\r\n,", {}},
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
  for (const auto& [text, elements] : kCases) {
    EXPECT_EQ(SplitAddressList(text), elements) << text;
  }
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

TEST(AddressSyntax, RulesInTheirOrder) {
  const struct {
    std::string text;
    std::int32_t rule;
    std::string domains = "";
  } kCases[] = {
      {"a@xy.de", 0},
      {"", 1},
      {" ", 2},
      {"Jane <>", 2},
      {"a@xy.de, b@xy.de", 2},
      {"nobody", 4},
      {"a@", 4},
      {"@", 4},
      // The pattern ??*.??*
      {"a@host", 2},
      {"a@x.de", 2},
      {"a@xy.d", 2},
      {"a@xy.", 2},
      {"a@.xy", 2},
      {"a@x.yz.de", 0},
      {"a@..de", 2},
      {"a@...de", 0},
      {"a@xy.de.", 0},
      {"@x", 2},
      // Address literals.
      {"a@[1.2.3.4", 6},
      {"a@[", 6},
      {"a@[1.2.3]", 7},
      {"a@[1.2.3.4.5]", 7},
      {"a@[1.2.x]", 7},
      {"a@[1.2.3.x]", 3},
      {"a@[1.2.3.4 ]", 3},
      {"a@[999.2.3.4000]", 0},
      {"a@[...]", 0},
      {"@[1.2.3.4]", 8},
      // Top-level domains.
      {"a@xy.de", 0, "com,de"},
      {"a@xy.DE", 0, "com,de"},
      {"a@xy.de", 5, "com,den"},
      {"a@xy.com", 5, "com.,org"},
      {"@xy.de", 5, "com"},
      {"a@[1.2.3.4]", 0, "com"},
      // The local part.
      {"@xy.de", 8},
      {"a\x7F@xy.de", 9},
      {"a\x1F@xy.de", 9},
      {"a\t@xy.de", 9},
      {"a\0b@xy.de"s, 9},
      {"a\x80\xFF@xy.de", 0},
      {"\"a b\"@xy.de", 0},
      {"Jane\x01 (c\x7F) <a(b)@xy.de>", 0},
  };
  for (const auto& [text, rule, domains] : kCases) {
    EXPECT_EQ(CheckAddressSyntax(text, domains), rule) << text << " " << domains;
  }
}

}  // namespace
}  // namespace netro
