// Fuzzes the system's configuration texts: one input is read as a resolver configuration and as a
// hosts file, whose last line is also the name that is looked up.

#include "fuzz/Fuzz.h"
#include "platform/HostsFile.h"
#include "platform/ResolverConfig.h"

namespace {

bool IsOneWord(std::string_view text) {
  return text.find_first_of(std::string_view(" \t\r\n\0", 5)) == text.npos;
}

void CheckResolverConfig(std::string_view text) {
  const netro::ResolverConfig config = netro::ParseResolverConfig(text);
  Require(config.servers.size() <= text.size() / std::string_view("nameserver 0").size());
  for (const std::string& server : config.servers) {
    const auto ip = netro::ParseAddress(server);
    Require(ip && netro::FormatAddress(*ip) == server);
  }
  Require(IsOneWord(config.domain));
  Require(config.domain.empty() || text.find(config.domain) != text.npos);
}

void CheckHosts(std::string_view text) {
  const std::string_view name = text.substr(text.rfind('\n') + 1);
  const auto addresses = netro::FindHostAddresses(text, name);
  if (addresses.empty()) return;
  // The address has a name then, and that leads to some address; one with a dot at its end cannot
  // be asked for.
  const std::string canonical = netro::FindHostName(text, addresses.front());
  Require(!canonical.empty() && IsOneWord(canonical));
  Require(canonical.ends_with('.') || !netro::FindHostAddresses(text, canonical).empty());
  Require(name.ends_with('.') ||
          netro::FindHostAddresses(text, std::string(name) + '.') == addresses);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  CheckResolverConfig(text);
  CheckHosts(text);
  return 0;
}
