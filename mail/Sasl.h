// The client's side of SASL mechanisms (RFC 4422): what is sent for what the server asks. Bytes in
// and bytes out, without the protocol around them. Owned by a login. Thread: any, one at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

struct SaslCredentials {
  std::string user;
  std::string password;
  std::string token;  // of OAuth 2
};

class SaslMechanism {
 public:
  virtual ~SaslMechanism() = default;

  /// What goes along with the first command; none when the server speaks first.
  virtual std::optional<std::string> InitialResponse() { return std::nullopt; }
  /// The answer to the server's next challenge; none when that cannot be answered, as it is
  /// malformed, comes out of turn, or its sender does not know the password.
  virtual std::optional<std::string> Respond(std::string_view challenge) = 0;
  /// False as long as the server has not proved what it must prove: its word that the login is
  /// good is then worth nothing.
  virtual bool IsComplete() const { return true; }
};

/// The mechanisms to try of those that a server offers, the best one first. `showsSecret` lets in
/// those that send the secret itself.
std::vector<std::string> ChooseMechanisms(const std::vector<std::string>& offered,
                                          const SaslCredentials& credentials, bool showsSecret);

/// One of these names. `nonce` is a random text without commas, for those that need one.
std::unique_ptr<SaslMechanism> MakeMechanism(std::string_view name,
                                             const SaslCredentials& credentials, std::string nonce);

}  // namespace netro
