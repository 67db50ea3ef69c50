// The response value of HTTP Digest authentication (RFC 2617, section 3.2.2). Thread: any.
#pragma once

#include <string>

namespace netro {

/// What the response is computed from, named as in the RFC and without the header's quotes.
struct DigestInput {
  std::string user;
  std::string realm;
  std::string password;
  std::string algorithm;    // "MD5-sess" in any case; everything else means "MD5"
  std::string nonce;        // of the server
  std::string nonceCount;   // eight hexadecimal digits
  std::string clientNonce;  // "cnonce"
  std::string qop;          // "auth", or empty for the older form (RFC 2069)
  std::string method;
  std::string uri;  // as in the request line
};

/// Returns the response as 32 lower-case hexadecimal digits. "auth-int", which also covers the
/// request's body, is not offered.
std::string DigestCalc(const DigestInput& input);

}  // namespace netro
