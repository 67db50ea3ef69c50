// SHA-256 against the vectors of RFC 6234, section 8.5, and Digest with it against the example of
// RFC 7616, section 3.9.1.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "support/DigestAuth.h"
#include "support/Sha256.h"

namespace netro {
namespace {

TEST(Sha256, MatchesTheRfc) {
  std::string digits;
  for (int i = 0; i < 80; ++i) digits += "01234567";
  const struct {
    std::string message;
    const char* digest;
  } kCases[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
      {digits, "594847328451bdfa85056225462cc1d867d877fb388df0ce35f25ab5562bfbb5"},
      {"\x19", "68aa2e2ee5dff96e3355e6c7ee373e3d6a4e17f75f9518d843709c0c9bc3e3d4"},
  };
  for (const auto& [message, digest] : kCases) EXPECT_EQ(Sha256Hex(message), digest);
}

TEST(Sha256, TakesTheMessageInPieces) {
  const std::string message(200, 'm');
  Sha256 whole;
  whole.Update(message);
  const Sha256::Digest expected = whole.Finish();
  for (std::size_t piece = 1; piece < message.size(); ++piece) {
    Sha256 sha;
    for (std::size_t at = 0; at < message.size(); at += piece)
      sha.Update(std::string_view(message).substr(at, piece));
    EXPECT_EQ(sha.Finish(), expected) << piece;
  }
}

TEST(DigestAuth, MatchesTheRfcWithBothHashes) {
  DigestInput input{.user = "Mufasa",
                    .realm = "http-auth@example.org",
                    .password = "Circle of Life",
                    .algorithm = "SHA-256",
                    .nonce = "7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v",
                    .nonceCount = "00000001",
                    .clientNonce = "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ",
                    .qop = "auth",
                    .method = "GET",
                    .uri = "/dir/index.html"};
  EXPECT_EQ(DigestCalc(input), "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1");
  input.algorithm = "sha-256-SESS";
  EXPECT_EQ(DigestCalc(input), "2fd51b3a77ad75bad6afad6003e818d767133c46d9e2749e7f5232ae1ea3efd7");
  input.algorithm = "MD5";
  EXPECT_EQ(DigestCalc(input), "8ca523f5e9506fed4657c9700eebdbec");
}

}  // namespace
}  // namespace netro
