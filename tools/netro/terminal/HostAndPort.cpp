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

// "[2001:db8::1]:53"
void ReadLiteralAndPort(const std::string& option, std::string_view text, std::string& host,
                        std::int32_t& port) {
  const std::size_t end = text.find(']');
  const std::string_view rest = text.substr(std::min(end, text.size() - 1) + 1);
  host = text.substr(1, end - 1);
  if (end == text.npos || host.find(':') == host.npos || (!rest.empty() && rest.front() != ':')) {
    throw UsageError(option + ": \"" + std::string(text) + "\" is no IPv6 address");
  }
  if (!rest.empty()) port = ReadPort(option, rest.substr(1));
}

}  // namespace

void ReadHostAndPort(const std::string& option, std::string_view text, std::string& host,
                     std::int32_t& port) {
  if (text.starts_with('[')) return ReadLiteralAndPort(option, text, host, port);
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

std::string BracketedHost(const std::string& host) {
  return host.find(':') != host.npos ? '[' + host + ']' : host;
}

std::string HostAndPortText(const std::string& host, std::int32_t port) {
  return BracketedHost(host) + ':' + std::to_string(port);
}

void CheckHost(const std::string& host) {
  if (host.find(':') != host.npos) {
    if (UsualIPv6(host)) return;
    throw UsageError("\"" + host + "\" is no IPv6 address, and a port is not supported");
  }
  if (!IsHostName(host)) throw UsageError("\"" + host + "\" is no host name and no address");
}

}  // namespace netro::tool
