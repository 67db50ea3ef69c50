// Reads the authentication challenges (RFC 9110, section 11.6.1; RFC 7616, section 3.3) out of the
// header of a refused answer. Pure; the header is the server's word and is trusted in nothing.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "web/HttpHead.h"

namespace netro {

/// One challenge. Control bytes are dropped from the values, so that they can be quoted in a
/// request.
struct HttpChallenge {
  std::string scheme = "basic";  // in lower case
  std::string realm;
  std::string nonce;
  std::string opaque;
  std::string algorithm;  // as it came; empty: MD5
  std::string qop;        // the list as it came; empty: the older form (RFC 2069)
  bool hasOpaque = false;
  bool stale = false;  // only the nonce was refused
  bool userhash = false;

  bool IsDigest() const { return scheme == "digest"; }
};

/// All challenges of the lines named `lineName`, in order: several in one line as well as in
/// several. At most 64 of them.
std::vector<HttpChallenge> ParseChallenges(const HttpHead& head, std::string_view lineName);

/// Which hash a Digest is computed with.
enum class DigestForm {
  Md5Only,   // the line that servers have known from this library
  Standard,  // RFC 7616: SHA-256 before MD5
};

/// Writes the challenge that is to be answered: Digest with an algorithm of the form before Basic.
/// Without either, Basic; for schemes unknown too, as RFC 9110 asks nothing else of a client that
/// has only that. False when the server knows Digest only, and only in ways that the standard form
/// has not: no answer would do, and the password must not go out as it is.
bool ChooseChallenge(std::span<const HttpChallenge> challenges, DigestForm form,
                     HttpChallenge& chosen);

}  // namespace netro
