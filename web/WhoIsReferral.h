// The servers that answers of WHOIS servers refer to. Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

struct WhoIsServer {
  std::string host;  // in lower case, without a dot at the end
  std::int32_t port = 43;

  std::string Text() const;
  bool operator==(const WhoIsServer&) const = default;
};

/// Reads "host[:port]" or "[IPv6]:port"; nothing for what cannot be one.
std::optional<WhoIsServer> ReadWhoIsServer(std::string_view text);

/// What the lines of an answer that name another server came to.
struct WhoIsReferral {
  std::optional<WhoIsServer> next;  // the first server named that has not been asked
  std::vector<std::string> notes;   // about what was ignored
};

/// Looks for lines such as "refer: host" or "ReferralServer: whois://host:port". The answer may say
/// anything: only a host, or a host and a port, count. The last of `asked` gave the answer.
WhoIsReferral FindWhoIsReferral(std::string_view answer, const std::vector<WhoIsServer>& asked);

}  // namespace netro
