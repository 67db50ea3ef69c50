// Reading of "host:port".

#include "tools/netro/HostAndPort.h"

#include <charconv>

#include "tools/netro/Command.h"

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

}  // namespace

void ReadHostAndPort(const std::string& option, std::string_view text, std::string& host,
                     std::int32_t& port) {
  if (text.starts_with('[')) {
    throw UsageError(option + ": an IPv6 address is not supported");
  }
  const std::size_t colon = text.find(':');
  host = text.substr(0, colon);
  if (colon != text.npos) {
    port = ReadPort(option, text.substr(colon + 1));
  }
  if (host.empty()) {
    throw UsageError(option + ": the host is missing");
  }
}

}  // namespace netro::tool
