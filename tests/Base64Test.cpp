// Base64: the vectors of RFC 4648, section 10, what a strict decoder refuses, and round trips.

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <random>
#include <string>

#include "support/Base64.h"

namespace netro {
namespace {

TEST(Base64, EncodesAndDecodes) {
  const struct {
    std::string bytes;
    std::string text;
  } kCases[] = {{"", ""},
                {"f", "Zg=="},
                {"fo", "Zm8="},
                {"foo", "Zm9v"},
                {"foob", "Zm9vYg=="},
                {"fooba", "Zm9vYmE="},
                {"foobar", "Zm9vYmFy"},
                {"Aladdin:open sesame", "QWxhZGRpbjpvcGVuIHNlc2FtZQ=="},
                {std::string(3, '\0'), "AAAA"},
                {"\xFB\xFF\xFE", "+//+"}};
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
  for (const std::string& text : kCases) {
    EXPECT_EQ(Base64Decode(text), std::nullopt) << text;
  }
}

TEST(Base64, RoundTripsRandomBytes) {
  std::mt19937 random(4648);
  for (std::size_t size = 0; size < 300; ++size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
      byte = static_cast<char>(random());
    }
    const std::string text = Base64Encode(bytes);
    EXPECT_EQ(text.size(), (size + 2) / 3 * 4);
    ASSERT_EQ(Base64Decode(text), bytes) << size;
  }
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

}  // namespace
}  // namespace netro
