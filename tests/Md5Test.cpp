// MD5 against the suite of RFC 1321, appendix A.5, and Digest against the example of RFC 2617.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "support/DigestAuth.h"
#include "support/Md5.h"

namespace netro {
namespace {

TEST(Md5, MatchesTheRfc) {
  const struct {
    std::string_view message;
    const char* digest;
  } kCases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& [message, digest] : kCases) {
    EXPECT_EQ(Md5Hex(message), digest) << message;
  }
}

TEST(Md5, PadsEveryLengthOfTheLastBlock) {
  // The digest of the digests of "", "x", "xx" ... up to 130 bytes.
  std::string digests;
  for (std::size_t size = 0; size <= 130; ++size) {
    digests += Md5Hex(std::string(size, 'x'));
  }
  EXPECT_EQ(Md5Hex(digests), "861e4a9e76c88ae6267e22fd76384596");
  EXPECT_EQ(Md5Hex(std::string(1000000, 'a')), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(Md5, TakesTheMessageInPieces) {
  const std::string message(200, 'm');
  Md5 whole;
  whole.Update(message);
  const Md5::Digest expected = whole.Finish();
  for (std::size_t piece = 1; piece < message.size(); ++piece) {
    Md5 md5;
    for (std::size_t at = 0; at < message.size(); at += piece) {
      md5.Update(std::string_view(message).substr(at, piece));
    }
    EXPECT_EQ(md5.Finish(), expected) << piece;
  }
}

DigestInput RfcExample() {
  return {.user = "Mufasa",
          .realm = "testrealm@host.com",
          .password = "Circle Of Life",
          .algorithm = "MD5",
          .nonce = "dcd98b7102dd2f0e8b11d0f600bfb0c093",
          .nonceCount = "00000001",
          .clientNonce = "0a4f113b",
          .qop = "auth",
          .method = "GET",
          .uri = "/dir/index.html"};
}

TEST(DigestAuth, MatchesTheRfc) {
  EXPECT_EQ(DigestCalc(RfcExample()), "6629fae49393a05397450978507c4ef1");
}

TEST(DigestAuth, KnowsTheFormWithoutQop) {
  DigestInput input = RfcExample();
  input.qop.clear();
  const std::string expected = "670fd8c2df070c60b045671b8b24ff02";
  EXPECT_EQ(DigestCalc(input), expected);
  input.clientNonce = "other";
  input.nonceCount = "00000002";
  EXPECT_EQ(DigestCalc(input), expected);
}

TEST(DigestAuth, KnowsSessions) {
  DigestInput input = RfcExample();
  input.algorithm = "MD5-sess";
  EXPECT_EQ(DigestCalc(input), "8e3825c57e897f5a0dec6c2d4e5059d0");
  input.algorithm = "md5-SESS";
  EXPECT_EQ(DigestCalc(input), "8e3825c57e897f5a0dec6c2d4e5059d0");
}

TEST(DigestAuth, UnnamedAlgorithmIsMd5) {
  DigestInput input = RfcExample();
  input.algorithm.clear();
  EXPECT_EQ(DigestCalc(input), DigestCalc(RfcExample()));
}

}  // namespace
}  // namespace netro
