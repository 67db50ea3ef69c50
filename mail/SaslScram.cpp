#include "mail/SaslScram.h"

#include <charconv>

#include "support/Base64.h"
#include "support/Hmac.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::string_view kNoBinding = "n,,";
constexpr std::size_t kLongestChallenge = 8192;

// RFC 5802, section 5.1: "=" and "," stand for themselves nowhere in a name.
std::string SaslName(std::string_view name) {
  std::string escaped;
  for (const char c : name) {
    if (c == '=') {
      escaped += "=3D";
    } else if (c == ',') {
      escaped += "=2C";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

struct ServerFirst {
  std::string nonce;
  std::string salt;
  unsigned iterations = 0;
};

// "r=nonce,s=salt,i=iterations" and perhaps more; an "m=" in front is an extension that must be
// understood.
std::optional<ServerFirst> ParseServerFirst(std::string_view text) {
  const std::vector<std::string> parts = Split(text, ',');
  if (parts.size() < 3 || !parts[0].starts_with("r=") || !parts[1].starts_with("s=") ||
      !parts[2].starts_with("i=")) {
    return std::nullopt;
  }
  ServerFirst first;
  first.nonce = parts[0].substr(2);
  const auto salt = Base64Decode(std::string_view(parts[1]).substr(2));
  const std::string_view count = std::string_view(parts[2]).substr(2);
  const auto [end, error] =
      std::from_chars(count.data(), count.data() + count.size(), first.iterations);
  const bool isNumber = error == std::errc() && end == count.data() + count.size();
  if (!salt || salt->empty() || !isNumber || first.iterations == 0) return std::nullopt;
  first.salt = *salt;
  return first;
}

}  // namespace

SaslScram::SaslScram(const SaslCredentials& credentials, std::string nonce)
    : password_(credentials.password),
      nonce_(std::move(nonce)),
      bare_("n=" + SaslName(credentials.user) + ",r=" + nonce_) {}

std::optional<std::string> SaslScram::InitialResponse() { return std::string(kNoBinding) + bare_; }

std::optional<std::string> SaslScram::Respond(std::string_view challenge) {
  if (challenge.size() > kLongestChallenge || proved_) return std::nullopt;
  if (serverSignature_.empty()) return Prove(challenge);
  proved_ = Split(challenge, ',').front() == "v=" + serverSignature_;
  if (!proved_) return std::nullopt;
  return std::string();
}

std::optional<std::string> SaslScram::Prove(std::string_view challenge) {
  const auto first = ParseServerFirst(challenge);
  if (!first || first->iterations > kMostIterations) return std::nullopt;
  if (!first->nonce.starts_with(nonce_) || first->nonce == nonce_) return std::nullopt;

  const auto salted = Pbkdf2<Sha256>(password_, first->salt, first->iterations);
  const Hmac<Sha256> withSalted(TextOfDigest(salted));
  auto proof = withSalted("Client Key");
  Sha256 stored;
  stored.Update(TextOfDigest(proof));
  const std::string final = "c=" + Base64Encode(kNoBinding) + ",r=" + first->nonce;
  const std::string message = bare_ + ',' + std::string(challenge) + ',' + final;
  const auto signature = Hmac<Sha256>(TextOfDigest(stored.Finish()))(message);
  for (std::size_t i = 0; i < proof.size(); ++i) {
    proof[i] = static_cast<std::uint8_t>(proof[i] ^ signature[i]);
  }
  const auto serverKey = withSalted("Server Key");
  const auto expected = Hmac<Sha256>(TextOfDigest(serverKey))(message);
  serverSignature_ = Base64Encode(TextOfDigest(expected));
  return final + ",p=" + Base64Encode(TextOfDigest(proof));
}

}  // namespace netro
