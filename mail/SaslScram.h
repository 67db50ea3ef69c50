// SCRAM-SHA-256 without channel binding (RFC 5802, RFC 7677): neither side learns the password, and
// both prove that they know it. Thread: any, one at a time.
#pragma once

#include <string>

#include "mail/Sasl.h"
#include "support/Sha256.h"

namespace netro {

class SaslScram final : public SaslMechanism {
 public:
  /// More iterations than this would let a server keep the loop busy.
  static constexpr unsigned kMostIterations = 600'000;

  SaslScram(const SaslCredentials& credentials, std::string nonce);

  std::optional<std::string> InitialResponse() override;
  std::optional<std::string> Respond(std::string_view challenge) override;
  bool IsComplete() const override { return proved_; }

 private:
  std::optional<std::string> Prove(std::string_view challenge);

  const std::string password_;
  const std::string nonce_;
  const std::string bare_;       // client-first-message-bare
  std::string serverSignature_;  // in Base64, once the proof was sent
  bool proved_ = false;
};

}  // namespace netro
