// A WHOIS server, and the one that an answer refers to. Thread: any.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "terminal/HostAndPort.h"

namespace netro::tool {

struct WhoIsServer {
  std::string host;  // in lower case, without a dot at the end
  std::int32_t port = 43;

  std::string Text() const { return HostAndPortText(host, port); }
  bool operator==(const WhoIsServer&) const = default;
};

/// Reads "host[:port]". Throws UsageError, which names `option`.
WhoIsServer ReadWhoIsServer(const std::string& option, std::string_view text);

/// What the lines of an answer that name another server came to.
struct Referral {
  std::optional<WhoIsServer> next;  // the first server named that has not been asked
  std::vector<std::string> notes;   // about what was ignored
};

/// Looks for lines such as "refer: host" or "ReferralServer: whois://host:port". The answer may say
/// anything: only a host, or a host and a port, count. The last of `asked` gave the answer.
Referral FindReferral(std::string_view answer, const std::vector<WhoIsServer>& asked);

}  // namespace netro::tool
