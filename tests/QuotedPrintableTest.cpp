// Quoted-printable: what each kind of character becomes, where lines break, and that a decoder of
// the test's own gets back random texts.

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>

#include "support/QuotedPrintable.h"

namespace netro {
namespace {

std::string Encode(const std::string& text) {
  std::string out;
  AppendQuotedPrintable(out, text);
  return out;
}

std::string Decode(const std::string& encoded) {
  std::string text;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    if (encoded[i] != '=') {
      text += encoded[i];
    } else if (encoded.substr(i, 3) == "=\r\n") {
      i += 2;
    } else {
      text += static_cast<char>(std::stoi(encoded.substr(i + 1, 2), nullptr, 16));
      i += 2;
    }
  }
  return text;
}

std::string WithWholeLineEnds(const std::string& text) {
  std::string whole;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && i > 0 && text[i - 1] == '\r') continue;
    whole += text[i] == '\r' || text[i] == '\n' ? "\r\n" : std::string(1, text[i]);
  }
  return whole;
}

TEST(QuotedPrintable, Encodes) {
  const std::string x75(75, 'x');
  const struct {
    std::string text;
    std::string encoded;
  } kCases[] = {
      {"", ""},
      {"a b\tc", "a b\tc"},
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
      {x75.substr(2) + "=x", x75.substr(2) + "=\r\n=3Dx"},
      {x75.substr(3) + "=xx", x75.substr(3) + "=3D=\r\nxx"},
  };
  for (const auto& [text, encoded] : kCases) {
    EXPECT_EQ(Encode(text), encoded) << text;
  }
  std::string out = "kept ";
  AppendQuotedPrintable(out, ".");
  EXPECT_EQ(out, "kept =2E");
}

TEST(QuotedPrintable, KeepsEveryTextAndTheLimitsOfLines) {
  const std::string kAlphabets[] = {"ab.=F \t\r\n\xC3", "From .\n", "x", "x ", "\xFF", "abc \n"};
  std::mt19937 random(2045);
  for (int round = 0; round < 3000; ++round) {
    const std::string& alphabet = kAlphabets[static_cast<std::size_t>(round) % 6];
    std::string text(random() % 400, '\0');
    for (char& c : text) c = alphabet[random() % alphabet.size()];
    const std::string encoded = Encode(text);
    ASSERT_EQ(Decode(encoded), WithWholeLineEnds(text));
    for (std::size_t begin = 0, end = 0; begin < encoded.size(); begin = end + 2) {
      end = std::min(encoded.find("\r\n", begin), encoded.size());
      const std::string line = encoded.substr(begin, end - begin);
      ASSERT_LE(line.size(), 76U);
      ASSERT_EQ(line.find_first_of("\r\n"), line.npos);
      ASSERT_FALSE(line.starts_with('.') || line.starts_with("From ")) << line;
      ASSERT_FALSE(line.ends_with(' ') || line.ends_with('\t')) << line;
      ASSERT_NE(line, "=");
    }
  }
}

}  // namespace
}  // namespace netro
