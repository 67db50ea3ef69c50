// MD5, SHA-256, Digest and the mechanisms of logins by the examples of their RFCs.
#include "TestKit.h"
#include "mail/SaslScram.h"
#include "mail/SmtpExtensions.h"
#include "support/DigestAuth.h"
#include "support/Hmac.h"
#include "support/Md5.h"
#include "support/Sha256.h"

namespace netro {
namespace {

TEST(Md5, MatchesTheRfc) {
  const std::pair<std::string_view, const char*> kCases[] = {
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
  for (const auto& [message, digest] : kCases) EXPECT_EQ(Md5Hex(message), digest) << message;
}

TEST(Md5, PadsEveryLengthOfTheLastBlock) {
  // The digest of the digests of "", "x", "xx" ... up to 130 bytes.
  std::string digests;
  for (std::size_t size = 0; size <= 130; ++size) digests += Md5Hex(std::string(size, 'x'));
  EXPECT_EQ(Md5Hex(digests), "861e4a9e76c88ae6267e22fd76384596");
  EXPECT_EQ(Md5Hex(std::string(1000000, 'a')), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(Sha256, MatchesTheRfc) {
  std::string digits;
  for (int i = 0; i < 80; ++i) digits += "01234567";
  const std::pair<std::string, const char*> kCases[] = {
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

template <class Hash>
void ExpectPieces() {
  const std::string message(200, 'm');
  Hash whole;
  whole.Update(message);
  const typename Hash::Digest expected = whole.Finish();
  for (std::size_t piece = 1; piece < message.size(); ++piece) {
    Hash hash;
    for (std::size_t at = 0; at < message.size(); at += piece)
      hash.Update(std::string_view(message).substr(at, piece));
    EXPECT_EQ(hash.Finish(), expected) << piece;
  }
}

TEST(Md5, TakesTheMessageInPieces) { ExpectPieces<Md5>(); }
TEST(Sha256, TakesTheMessageInPieces) { ExpectPieces<Sha256>(); }

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
  DigestInput input = RfcExample();
  EXPECT_EQ(DigestCalc(input), "6629fae49393a05397450978507c4ef1");
  input.algorithm.clear();  // the unnamed one is MD5
  EXPECT_EQ(DigestCalc(input), "6629fae49393a05397450978507c4ef1");
  for (const char* session : {"MD5-sess", "md5-SESS"}) {
    input.algorithm = session;
    EXPECT_EQ(DigestCalc(input), "8e3825c57e897f5a0dec6c2d4e5059d0");
  }
}

TEST(DigestAuth, KnowsTheFormWithoutQop) {
  DigestInput input = RfcExample();
  input.qop.clear();
  for (const char* nonce : {"0a4f113b", "other"}) {
    input.clientNonce = input.nonceCount = nonce;
    EXPECT_EQ(DigestCalc(input), "670fd8c2df070c60b045671b8b24ff02");
  }
}

TEST(DigestAuth, MatchesTheLaterRfcWithBothHashes) {
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

const SaslCredentials kTim{"tim", "tanstaaftanstaaf", {}};
const SaslCredentials kPencil{"user", "pencil", {}};
constexpr char kNonce[] = "rOprNGfwEbeRWgbNEkqO";
// RFC 7677, section 3.
constexpr char kServerFirst[] =
    "r=rOprNGfwEbeRWgbNEkqO%hvYDpWUa2RaTCAfuxFIlj)hNlF$k0,s=W22ZaJ0SNY7soEsUEjb6gQ==,i=4096";
constexpr char kProof[] =
    "c=biws,r=rOprNGfwEbeRWgbNEkqO%hvYDpWUa2RaTCAfuxFIlj)hNlF$k0,"
    "p=dHzbZapWIk4jUhN+Ute9ytag9zjfMHgsqmmiz7AndVQ=";
constexpr char kServerFinal[] = "v=6rriTRBi23WpRR/wtup+mMhUZUn/dB5nLTJRsjl95G4=";

TEST(Sasl, SaysWhatTheStandardsSay) {
  EXPECT_EQ(MakeMechanism("PLAIN", kTim, "")->InitialResponse(), "\0tim\0tanstaaftanstaaf"s);
  const auto cram = MakeMechanism("CRAM-MD5", kTim, "");
  EXPECT_EQ(cram->InitialResponse(), std::nullopt);
  EXPECT_EQ(cram->Respond("<1896.697170952@postoffice.reston.mci.net>"),
            "tim b913a602c7eda7a495b4e6e7334d3890");
  const auto login = MakeMechanism("LOGIN", kTim, "");
  EXPECT_EQ(login->Respond("Username:"), "tim");
  EXPECT_EQ(login->Respond("Password:"), "tanstaaftanstaaf");
  EXPECT_EQ(login->Respond("Password:"), std::nullopt);
  EXPECT_EQ(MakeMechanism("XOAUTH2", {"a@b.test", "", "token"}, "")->InitialResponse(),
            "user=a@b.test\1auth=Bearer token\1\1");
  SaslScram scram(kPencil, kNonce);
  EXPECT_EQ(scram.InitialResponse(), "n,,n=user,r=rOprNGfwEbeRWgbNEkqO");
  EXPECT_EQ(scram.Respond(kServerFirst), kProof);
  EXPECT_FALSE(scram.IsComplete());
  EXPECT_EQ(scram.Respond(kServerFinal), "");
  EXPECT_TRUE(scram.IsComplete());
}

TEST(Sasl, ScramDoesNotTrustTheServer) {
  for (const char* first :
       {"", "r=", "r=other,s=W22Z,i=4096", "r=rOprNGfwEbeRWgbNEkqO,s=W22Z,i=4096",
        "r=rOprNGfwEbeRWgbNEkqOx,s=W22Z,i=0", "r=rOprNGfwEbeRWgbNEkqOx,s=W22Z,i=600001",
        "r=rOprNGfwEbeRWgbNEkqOx,s=W22Z,i=-1", "r=rOprNGfwEbeRWgbNEkqOx,s=,i=1",
        "r=rOprNGfwEbeRWgbNEkqOx,s=%%%%,i=1", "m=x,r=rOprNGfwEbeRWgbNEkqOx,s=W22Z,i=1"}) {
    EXPECT_EQ(SaslScram(kPencil, kNonce).Respond(first), std::nullopt) << first;
  }
  for (const char* last : {"", "v=", "e=other-error", "v=6rriTRBi23WpRR/wtup+mMhUZUn/dB5nLTJRsjl95G5="}) {
    SaslScram scram(kPencil, kNonce);
    EXPECT_TRUE(scram.Respond(kServerFirst));
    EXPECT_EQ(scram.Respond(last), std::nullopt) << last;
    EXPECT_FALSE(scram.IsComplete());
  }
  EXPECT_EQ(SaslScram({"a=b,c", "", ""}, "n").InitialResponse(), "n,,n=a=3Db=2Cc,r=n");
}

TEST(Sasl, TheBestOfferedComesFirst) {
  const std::vector<std::string> offered = {"LOGIN", "plain", "XOAUTH2", "GSSAPI", "CRAM-MD5",
                                            "SCRAM-SHA-256"};
  using Names = std::vector<std::string>;
  EXPECT_EQ(ChooseMechanisms(offered, kTim, true),
            (Names{"SCRAM-SHA-256", "CRAM-MD5", "PLAIN", "LOGIN"}));
  EXPECT_EQ(ChooseMechanisms(offered, kTim, false), (Names{"SCRAM-SHA-256", "CRAM-MD5"}));
  EXPECT_EQ(ChooseMechanisms(offered, {"u", "p", "token"}, true), Names{"XOAUTH2"});
  EXPECT_EQ(ChooseMechanisms(offered, {"u", "p", "token"}, false), Names{});
}

// RFC 2202, the second and third test of MD5: a short key and a block of bytes; a key longer than a
// block is digested first.
TEST(Sasl, HmacIsThatOfTheStandard) {
  const auto hex = [](const std::string& key, const std::string& text) {
    const auto digest = Hmac<Md5>(key)(text);
    std::string out;
    for (const auto byte : digest) out += "0123456789abcdef"[byte >> 4], out += "0123456789abcdef"[byte & 15];
    return out;
  };
  EXPECT_EQ(hex("Jefe", "what do ya want for nothing?"), "750c783e6ab0b503eaa86e310a5db738");
  EXPECT_EQ(hex(std::string(80, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First"),
            "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd");
}

TEST(SmtpExtensions, AreReadWithinBounds) {
  const SmtpExtensions found = ParseExtensions(
      "250-mx.test PIPELINING\r\n250-size 1000\r\n250-AUTH PLAIN  LOGIN\r\n250-AUTH=LOGIN CRAM-MD5\r\n"
      "250-X\tY\r\n250-\r\n25\r\n250-8BITMIME\r\n250-DSN\r\n250 STARTTLS\r\n");
  EXPECT_EQ(found.largest, 1000u);
  EXPECT_TRUE(found.size && found.eightBitMime && found.startTls && found.dsn && found.auth);
  EXPECT_FALSE(found.pipelining) << "the first line is the name";
  EXPECT_FALSE(found.smtpUtf8);
  EXPECT_EQ(found.mechanisms, (std::vector<std::string>{"PLAIN", "LOGIN", "CRAM-MD5"}));
  EXPECT_EQ(found.lines.size(), 6u);
  EXPECT_EQ(ParseExtensions("250-x\r\n250 SIZE 99999999999999999999999").largest, 0u);
  std::string endless = "250-x\r\n";
  for (int i = 0; i < 10'000; ++i) endless += "250-Y\r\n";
  EXPECT_EQ(ParseExtensions(endless).lines.size(), 100u);
}

TEST(SmtpExtensions, EnhancedCodesAgreeWithTheReply) {
  const std::pair<const char*, const char*> kCases[] = {
      {"550 5.1.1 no\r\n", "5.1.1"},   {"250-2.0.0 a\r\n250 2.1.55 b\r\n", "2.1.55"},
      {"550 4.1.1 no\r\n", ""},        {"550 5.1 no\r\n", ""},
      {"550 5.1.1234 no\r\n", ""},     {"550 5.1.1x\r\n", ""},
      {"550 5.1.1", "5.1.1"},          {"550", ""},
      {"550 no 5.1.1\r\n", ""}};
  for (const auto& [reply, code] : kCases) EXPECT_EQ(EnhancedStatus(reply), code) << reply;
  EXPECT_EQ(XText("a+b=c \xff"), "a+2Bb+3Dc+20+FF");
}

}  // namespace
}  // namespace netro
