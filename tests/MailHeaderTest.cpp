// Header fields: what stays, what is encoded, where lines end; and that a decoder of the test's own
// gets back random values.

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "support/Base64.h"
#include "support/MailHeader.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

std::string TextField(std::string_view name, std::string_view value) {
  std::string out;
  AppendTextField(out, name, value);
  return out;
}

std::string AddressField(std::string_view value) {
  std::string out;
  AppendAddressField(out, "To", value);
  return out;
}

std::string DecodeQ(const std::string& text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '=') {
      bytes += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      bytes += text[i] == '_' ? ' ' : text[i];
    }
  }
  return bytes;
}

/// The value of an unstructured field (RFC 5322, section 2.2.3, and RFC 2047, section 6.2). Each
/// encoded word must be complete in itself.
std::string Decode(std::string field) {
  field = std::regex_replace(field, std::regex("\r\n"), "");
  field.erase(0, field.find(": ") + 2);
  field = std::regex_replace(field, std::regex("\\?= +=\\?"), "?==?");
  const std::regex word("=\\?utf-8\\?([BQ])\\?([^? ]+)\\?=");
  std::string value;
  std::smatch match;
  for (; std::regex_search(field, match, word); field = match.suffix()) {
    const std::string bytes =
        match[1] == "B" ? Base64Decode(match[2].str()).value_or("broken") : DecodeQ(match[2]);
    EXPECT_TRUE(IsUtf8(bytes)) << match[0];
    EXPECT_LE(match.length(), 75);
    value += match.prefix().str() + bytes;
  }
  return value + field;
}

void ExpectGoodLines(const std::string& field, std::size_t longest) {
  ASSERT_TRUE(field.ends_with("\r\n"));
  for (std::size_t begin = 0, end = 0; begin < field.size(); begin = end + 2) {
    end = field.find("\r\n", begin);
    const std::string line = field.substr(begin, end - begin);
    EXPECT_LE(line.size(), line.find("=?utf-8") == line.npos ? longest : 76U) << line;
    EXPECT_EQ(line.find_first_of(std::string_view("\r\n\0", 3)), line.npos) << line;
    EXPECT_EQ(line.front() == ' ', begin > 0) << line;
    EXPECT_FALSE(Trim(line).empty());
  }
}

TEST(MailHeader, WritesTextFields) {
  const std::string x66(66, 'x');
  const struct {
    std::string value;
    std::string field;
  } kCases[] = {
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
    EXPECT_EQ(TextField("Subject", value), field) << value;
  }
}

TEST(MailHeader, WritesAddressFields) {
  const std::string j = "=?utf-8?B?SsO2cmc=?=";
  const std::string oe = "\xC3\xB6";
  const struct {
    std::string value;
    std::string field;
  } kCases[] = {
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
      {"T" + oe + "ne: a@b.c; d@e.f", "=?utf-8?B?VMO2bmU=?=: a@b.c; d@e.f"},
      {"J" + oe + "rg <\"odd>,\"@[IPv6:::1]>, x@[IPv6:::2]",
       j + " <\"odd>,\"@[IPv6:::1]>, x@[IPv6:::2]"},
      {"j" + oe + "rg@x.y", "j" + oe + "rg@x.y"},
      {"a@b.c\r\nBcc: d@e.f", "a@b.c  Bcc: d@e.f"},
      {"J" + oe + "rg <never closed", j + " <never closed"},
      {"J" + oe + " (never \\", "=?utf-8?B?SsO2?= (never \\"},
  };
  for (const auto& [value, field] : kCases) {
    EXPECT_EQ(AddressField(value), "To: " + field + "\r\n") << value;
  }
}

TEST(MailHeader, FoldsAddressLists) {
  std::string value;
  for (int i = 0; i < 100; ++i) value += "somebody" + std::to_string(i) + "@mail.example,";
  const std::string field = AddressField(value);
  ExpectGoodLines(field, 78);
  EXPECT_EQ(Split(field, ',').size(), 100U);
  ExpectGoodLines(AddressField(std::string(5000, 'x') + "@mail.example"), 998);
  ExpectGoodLines(AddressField("\"a" + std::string(5000, ' ') + "b\" <c@d.e>"), 998);
  ExpectGoodLines(AddressField("\xC3\xB6 <" + std::string(5000, 'x') + ">"), 998);
}

TEST(MailHeader, KeepsEveryTextAndTheLimitsOfLines) {
  const std::vector<std::string> kAlphabets[] = {{"a", "b", " "},
                                                 {"a", " ", "\xC3\xA4"},
                                                 {"\xE2\x82\xAC"},
                                                 {"\xF0\x9F\x98\x80", "a", "=", "_"},
                                                 {"a"},
                                                 {" ", " ", " ", "a"}};
  const std::string kNames[] = {"Subject", "X", "X-" + std::string(60, 'n'), std::string(80, 'n')};
  std::mt19937 random(2047);
  for (std::size_t round = 0; round < 1200; ++round) {
    const auto& alphabet = kAlphabets[round % std::size(kAlphabets)];
    std::string value;
    for (std::size_t i = random() % (round < 600 ? 200 : 2000); i > 0; --i) {
      value += alphabet[random() % alphabet.size()];
    }
    value = Trim(value);
    const std::string& name = kNames[random() % std::size(kNames)];
    const std::string field = TextField(name, value);
    if (value.empty()) continue;
    ExpectGoodLines(field, value.find(' ') == value.npos ? 998 : 1000);
    ASSERT_EQ(Decode(field), value);
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
  std::string value;
  for (int i = 0; i < 500; ++i) value += "a\xE2\x82\xAC";
  const std::string lines = parameter(value);
  std::string joined;
  const std::regex section(";\r\n\tname\\*(\\d+)\\*=(utf-8'')?([^;]*)");
  int count = 0;
  for (auto at = std::sregex_iterator(lines.begin(), lines.end(), section);
       at != std::sregex_iterator(); ++at, ++count) {
    EXPECT_EQ((*at)[1], std::to_string(count));
    EXPECT_EQ((*at)[2].matched, count == 0);
    EXPECT_LE(at->length() - 3, 78);
    joined += (*at)[3];
  }
  EXPECT_EQ(std::regex_replace(joined, std::regex("%E2%82%AC"), "\xE2\x82\xAC"), value);
}

}  // namespace
}  // namespace netro
