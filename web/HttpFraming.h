// Where the body of an HTTP answer ends, and whether its connection can carry another exchange
// (RFC 9112, sections 6.3 and 9.3). Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "web/HttpHead.h"

namespace netro {

/// How a number may look that a peer sends: digits of `base` only, at most 2^53, which is what a
/// double still counts exactly.
std::optional<std::uint64_t> ParseLength(std::string_view text, unsigned base);

/// The beginning of a foreign text, fit for a message.
std::string Shown(std::string_view text);

struct HttpFraming {
  enum class Body { None, Sized, Chunked, UntilClose };

  Body body = Body::UntilClose;
  std::optional<std::uint64_t> length;  // as announced, also of an answer to HEAD
  bool chunked = false;                 // as announced
  bool closeMeansEnd = true;            // the connection ends with the body, or the body with it
  bool persistent = false;              // the connection may be kept once the body has ended
  std::string error;                    // not empty: the header breaks the rules (10042)
};

/// Reads the framing out of a header with this status. `headOnly`: the answer to HEAD.
HttpFraming ReadFraming(const HttpHead& head, std::int32_t code, bool headOnly);

}  // namespace netro
