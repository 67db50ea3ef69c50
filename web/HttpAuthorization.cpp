#include "web/HttpAuthorization.h"

#include "platform/Random.h"
#include "support/Base64.h"
#include "support/DigestAuth.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr const char* kNonceCount = "00000001";

// 128 random bits as hexadecimal digits: the client's nonce must not be guessable.
std::string RandomNonce() {
  std::string nonce;
  for (int i = 0; i < 32; ++i) nonce += "0123456789abcdef"[RandomNumber() & 15];
  return nonce;
}

// RFC 9110, section 5.6.4: quoted-string.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

DigestInput InputOf(const HttpCredentials& credentials, const HttpTarget& target) {
  DigestInput input;
  input.user = credentials.user;
  input.realm = credentials.challenge.realm;
  input.password = credentials.password;
  input.nonce = credentials.challenge.nonce;
  input.nonceCount = kNonceCount;
  input.clientNonce = RandomNonce();
  input.method = target.method;
  input.uri = target.uri;
  return input;
}

}  // namespace

std::string HttpCredentials::Authorization(const HttpTarget& target) const {
  if (!challenge.IsDigest()) return "Basic " + Base64Encode(user + ":" + password);
  return "Digest " +
         (form == DigestForm::Standard ? StandardParameters(target) : DigestParameters(target));
}

// Names, order and quotes as servers have known them from this library.
std::string HttpCredentials::DigestParameters(const HttpTarget& target) const {
  DigestInput input = InputOf(*this, target);
  input.algorithm = "MD5";
  input.qop = "auth";
  return "Username=" + Quoted(input.user) + ", realm=" + Quoted(input.realm) + ", qop=\"auth\"" +
         ", algorithm=\"MD5\", uri=" + Quoted(input.uri) + ", nonce=" + Quoted(input.nonce) +
         ", nc=" + Quoted(input.nonceCount) + ", cnonce=" + Quoted(input.clientNonce) +
         ", response=" + Quoted(DigestCalc(input));
}

// RFC 7616, section 3.4. A server that offers no qop knows the line of RFC 2069 only, which has
// neither count nor client nonce; the session forms need the latter all the same.
std::string HttpCredentials::StandardParameters(const HttpTarget& target) const {
  DigestInput input = InputOf(*this, target);
  input.algorithm = challenge.algorithm;
  input.qop = challenge.qop.empty() ? "" : "auth";
  const std::string name =
      challenge.userhash ? DigestHash(input.algorithm, input.user + ":" + input.realm) : input.user;
  std::string line = "username=" + Quoted(name) + ", realm=" + Quoted(input.realm) +
                     ", uri=" + Quoted(input.uri) + ", nonce=" + Quoted(input.nonce);
  if (!input.algorithm.empty()) line += ", algorithm=" + input.algorithm;
  if (!input.qop.empty()) line += ", nc=" + input.nonceCount + ", qop=" + input.qop;
  if (!input.qop.empty() || input.algorithm.find('-') != std::string::npos) {
    line += ", cnonce=" + Quoted(input.clientNonce);
  }
  line += ", response=" + Quoted(DigestCalc(input));
  if (challenge.hasOpaque) line += ", opaque=" + Quoted(challenge.opaque);
  if (challenge.userhash) line += ", userhash=true";
  return line;
}

bool HttpLogin::Refused(std::span<const HttpChallenge> challenges, DigestForm form) {
  HttpChallenge chosen;
  if (!ChooseChallenge(challenges, form, chosen)) return false;
  if (asked_) {
    const bool answered = form == DigestForm::Standard && challenge.IsDigest();
    if (!answered || renewed_ || !chosen.IsDigest() || !chosen.stale) return false;
    renewed_ = true;
  }
  asked_ = send = true;
  challenge = std::move(chosen);
  return true;
}

}  // namespace netro
