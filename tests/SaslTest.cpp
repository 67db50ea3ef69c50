// The mechanisms of logins, by the examples of their RFCs, and servers that do not play fair.
#include "TestKit.h"
#include "mail/SaslScram.h"
#include "mail/SmtpExtensions.h"
#include "support/Hmac.h"
#include "support/Md5.h"

namespace netro {
namespace {

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
