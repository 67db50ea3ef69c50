// The response value of HTTP Digest authentication (RFC 7616, section 3.4.1). Thread: any.
#pragma once

#include <string>
#include <string_view>

namespace netro {

/// What the response is computed from, named as in the RFC and without the header's quotes.
struct DigestInput {
  std::string user;  // as it is, also where the line carries its hash
  std::string realm;
  std::string password;
  std::string algorithm;    // "SHA-256", "-sess" forms, any case; everything else means "MD5"
  std::string nonce;        // of the server
  std::string nonceCount;   // eight hexadecimal digits
  std::string clientNonce;  // "cnonce"
  std::string qop;          // "auth", or empty for the older form (RFC 2069)
  std::string method;
  std::string uri;  // as in the request line
};

/// Returns the response as lower-case hexadecimal digits, 32 with MD5 and 64 with SHA-256.
/// "auth-int", which also covers the request's body, is not offered.
std::string DigestCalc(const DigestInput& input);

/// The hash that `algorithm` names, of any text.
std::string DigestHash(std::string_view algorithm, std::string_view text);

}  // namespace netro
