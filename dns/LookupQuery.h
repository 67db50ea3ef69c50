// The query of a lookup by name, made so that who does not see it cannot answer it (RFC 5452):
// besides the port of its socket, a reply has to repeat a random identifier and the case of each
// letter of the name.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "dns/DnsMessage.h"

namespace netro {

struct LookupQuery {
  enum class Match { None, Bare, OtherCase, Full };

  /// None when the domain is no name. An extended one (RFC 6891) takes replies of 1,232 bytes.
  static std::optional<LookupQuery> Make(DnsQuestion question, bool extended);

  /// How a message fits. A bare one is an error code without a question: its server has understood
  /// nothing. One in another case is a server's that does not keep it, or a lucky forger's.
  Match MatchOf(std::span<const std::uint8_t> message) const;

  Bytes message;
  std::size_t questionEnd = 0;
  bool extended = false;
};

}  // namespace netro
