// Reads an authentication challenge (RFC 7235, RFC 2617) out of the header of a refused answer.
// Pure; the header is the server's word and is trusted in nothing.
#pragma once

#include <string>
#include <string_view>

namespace netro {

struct HttpChallenge {
  bool digest = false;  // else Basic
  std::string realm;
  std::string nonce;
  std::string opaque;  // read, but not sent back
};

/// The challenge of the first line named `lineName` whose scheme is Basic or Digest; without one
/// Basic. Control bytes are dropped from the values, so that they can be quoted in a request.
HttpChallenge ParseChallenge(std::string_view header, std::string_view lineName);

}  // namespace netro
