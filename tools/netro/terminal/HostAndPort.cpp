// Reading of "host:port".

#include "terminal/HostAndPort.h"

#include <algorithm>
#include <charconv>

#include "terminal/Command.h"
#include "terminal/HostAddress.h"

namespace netro::tool {
namespace {

std::int32_t ReadPort(const std::string& option, std::string_view text) {
  std::int32_t port = 0;
  const char* end = text.data() + text.size();
  if (std::from_chars(text.data(), end, port).ptr != end || port < 1 || port > 65535) {
    throw UsageError(option + ": \"" + std::string(text) + "\" is no port number");
  }
  return port;
}

bool IsHostCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

bool IsLabel(std::string_view label) {
  constexpr std::size_t kLongestLabel = 63;
  return !label.empty() && label.size() <= kLongestLabel && !label.starts_with('-') &&
         std::ranges::all_of(label, IsHostCharacter);
}

}  // namespace

void ReadHostAndPort(const std::string& option, std::string_view text, std::string& host,
                     std::int32_t& port) {
  if (text.starts_with('[')) throw UsageError(option + ": an IPv6 address is not supported");
  const std::size_t colon = text.find(':');
  host = text.substr(0, colon);
  if (colon != text.npos) port = ReadPort(option, text.substr(colon + 1));
  if (host.empty()) throw UsageError(option + ": the host is missing");
}

bool IsHostName(std::string_view host) {
  constexpr std::size_t kLongestHost = 253;
  host.remove_suffix(host.ends_with('.') ? 1 : 0);
  if (host.size() > kLongestHost) return false;
  for (std::size_t dot = host.find('.'); dot != host.npos; dot = host.find('.')) {
    if (!IsLabel(host.substr(0, dot))) return false;
    host.remove_prefix(dot + 1);
  }
  return IsLabel(host);
}

void CheckHost(const std::string& host) {
  if (host.find(':') != host.npos) {
    if (UsualIPv6(host)) return;
    throw UsageError("\"" + host + "\" is no IPv6 address, and a port is not supported");
  }
  if (!IsHostName(host)) throw UsageError("\"" + host + "\" is no host name and no address");
}

}  // namespace netro::tool
