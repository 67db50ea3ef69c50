// Credentials in a request (RFC 9110, section 11.6.2): Basic (RFC 7617) and Digest (RFC 7616), for
// the server or for a proxy, and when a challenge is answered with them. Pure.
#pragma once

#include <string>

#include "web/HttpChallenge.h"

namespace netro {

/// What a Digest covers of the request.
struct HttpTarget {
  std::string method;
  std::string uri;  // as in the request line
};

/// Credentials that go with a request, and the challenge that they answer.
struct HttpCredentials {
  std::string user;
  std::string password;
  HttpChallenge challenge;
  DigestForm form = DigestForm::Md5Only;

  /// The value of the field.
  std::string Authorization(const HttpTarget& target) const;

 private:
  std::string DigestParameters(const HttpTarget& target) const;
  std::string StandardParameters(const HttpTarget& target) const;
};

/// What has been said so far between the client and one that asks for credentials.
struct HttpLogin {
  bool send = false;  // credentials go with the next request
  HttpChallenge challenge;

  /// Takes the challenges of a refusal. True when the request is to be repeated: the first time,
  /// and once more when, in the standard form, only the nonce was too old.
  bool Refused(std::span<const HttpChallenge> challenges, DigestForm form);

 private:
  bool asked_ = false;
  bool renewed_ = false;
};

}  // namespace netro
