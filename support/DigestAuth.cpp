// The response value of HTTP Digest authentication (RFC 7616, section 3.4.1). Thread: any.

#include "support/DigestAuth.h"

#include "support/Md5.h"
#include "support/Sha256.h"
#include "support/Text.h"

namespace netro {
namespace {

bool IsSession(std::string_view algorithm) {
  return EqualsIgnoreCase(algorithm, "MD5-sess") || EqualsIgnoreCase(algorithm, "SHA-256-sess");
}

/// H(A1), RFC 7616, section 3.4.2.
std::string HashOfSecret(const DigestInput& in) {
  const std::string hash = DigestHash(in.algorithm, in.user + ':' + in.realm + ':' + in.password);
  if (!IsSession(in.algorithm)) return hash;
  return DigestHash(in.algorithm, hash + ':' + in.nonce + ':' + in.clientNonce);
}

}  // namespace

std::string DigestHash(std::string_view algorithm, std::string_view text) {
  return StartsWithIgnoreCase(algorithm, "SHA-256") ? Sha256Hex(text) : Md5Hex(text);
}

std::string DigestCalc(const DigestInput& in) {
  const std::string secret = HashOfSecret(in);
  const std::string request = DigestHash(in.algorithm, in.method + ':' + in.uri);
  if (in.qop.empty()) return DigestHash(in.algorithm, secret + ':' + in.nonce + ':' + request);
  return DigestHash(in.algorithm, secret + ':' + in.nonce + ':' + in.nonceCount + ':' +
                                      in.clientNonce + ':' + in.qop + ':' + request);
}

}  // namespace netro
