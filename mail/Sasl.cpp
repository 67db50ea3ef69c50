#include "mail/Sasl.h"

#include <algorithm>

#include "mail/SaslScram.h"
#include "support/Hmac.h"
#include "support/Md5.h"
#include "support/Text.h"

namespace netro {
namespace {

// Everything in one message (RFC 4616), the token of XOAUTH2 too. A server that refuses a token
// says why in a challenge, which is answered by nothing.
class OneMessage final : public SaslMechanism {
 public:
  OneMessage(std::string message, bool answersRefusal)
      : message_(std::move(message)), answersRefusal_(answersRefusal) {}

  std::optional<std::string> InitialResponse() override {
    sent_ = true;
    return message_;
  }
  std::optional<std::string> Respond(std::string_view /*challenge*/) override {
    if (!sent_) return InitialResponse();
    if (!answersRefusal_) return std::nullopt;
    answersRefusal_ = false;
    return std::string();
  }

 private:
  const std::string message_;
  bool answersRefusal_;
  bool sent_ = false;
};

// Never written down as a standard. What it asks for is not looked at: servers word it as they
// like, but always ask for the name first.
class Login final : public SaslMechanism {
 public:
  explicit Login(const SaslCredentials& credentials)
      : answers_{credentials.user, credentials.password} {}

  std::optional<std::string> Respond(std::string_view /*challenge*/) override {
    if (next_ == 2) return std::nullopt;
    return answers_[next_++];
  }

 private:
  const std::string answers_[2];
  std::size_t next_ = 0;
};

class CramMd5 final : public SaslMechanism {
 public:
  explicit CramMd5(const SaslCredentials& credentials)
      : user_(credentials.user), hmac_(credentials.password) {}

  std::optional<std::string> Respond(std::string_view challenge) override {
    if (answered_) return std::nullopt;
    answered_ = true;
    const auto digest = hmac_(challenge);
    std::string hex;
    for (const char byte : TextOfDigest(digest)) AppendHex(hex, byte);
    return user_ + ' ' + ToLower(hex);
  }

 private:
  const std::string user_;
  const Hmac<Md5> hmac_;
  bool answered_ = false;
};

std::string PlainMessage(const SaslCredentials& credentials) {
  return std::string(1, '\0') + credentials.user + '\0' + credentials.password;
}

std::string TokenMessage(const SaslCredentials& credentials) {
  return "user=" + credentials.user + "\1auth=Bearer " + credentials.token + "\1\1";
}

}  // namespace

std::vector<std::string> ChooseMechanisms(const std::vector<std::string>& offered,
                                          const SaslCredentials& credentials, bool showsSecret) {
  const struct {
    std::string_view name;
    bool showsSecret, takesToken;
  } kBestFirst[] = {{"SCRAM-SHA-256", false, false},
                    {"CRAM-MD5", false, false},
                    {"PLAIN", true, false},
                    {"LOGIN", true, false},
                    {"XOAUTH2", true, true}};
  std::vector<std::string> chosen;
  for (const auto& mechanism : kBestFirst) {
    const bool fits = mechanism.takesToken != credentials.token.empty();
    const bool isOffered = std::ranges::any_of(
        offered, [&](const std::string& name) { return EqualsIgnoreCase(name, mechanism.name); });
    if (fits && isOffered && (showsSecret || !mechanism.showsSecret))
      chosen.emplace_back(mechanism.name);
  }
  return chosen;
}

std::unique_ptr<SaslMechanism> MakeMechanism(std::string_view name,
                                             const SaslCredentials& credentials,
                                             std::string nonce) {
  if (name == "SCRAM-SHA-256") return std::make_unique<SaslScram>(credentials, std::move(nonce));
  if (name == "CRAM-MD5") return std::make_unique<CramMd5>(credentials);
  if (name == "LOGIN") return std::make_unique<Login>(credentials);
  if (name == "XOAUTH2") return std::make_unique<OneMessage>(TokenMessage(credentials), true);
  return std::make_unique<OneMessage>(PlainMessage(credentials), false);
}

}  // namespace netro
