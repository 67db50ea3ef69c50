// The response value of HTTP Digest authentication (RFC 2617, section 3.2.2). Thread: any.

#include "support/DigestAuth.h"

#include "support/Md5.h"
#include "support/Text.h"

namespace netro {
namespace {

/// H(A1), RFC 2617, section 3.2.2.2.
std::string HashOfSecret(const DigestInput& in) {
  const std::string hash = Md5Hex(in.user + ':' + in.realm + ':' + in.password);
  if (!EqualsIgnoreCase(in.algorithm, "MD5-sess")) {
    return hash;
  }
  return Md5Hex(hash + ':' + in.nonce + ':' + in.clientNonce);
}

}  // namespace

std::string DigestCalc(const DigestInput& input) {
  const std::string secret = HashOfSecret(input);
  const std::string request = Md5Hex(input.method + ':' + input.uri);
  if (input.qop.empty()) {
    return Md5Hex(secret + ':' + input.nonce + ':' + request);
  }
  return Md5Hex(secret + ':' + input.nonce + ':' + input.nonceCount + ':' + input.clientNonce +
                ':' + input.qop + ':' + request);
}

}  // namespace netro
