// Whom "netro ping" asks.

#include "ping/PingHosts.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <sstream>

#include "terminal/Command.h"
#include "terminal/HostAndPort.h"
#include "terminal/OptionValues.h"

namespace netro::tool {
namespace {

// As many as can be in flight at once: an IPv4 network of 16 bits.
constexpr std::size_t kMostHosts = 65'536;

using Octets = std::array<unsigned char, 16>;

struct Network {
  int family = 0;
  Octets first{};
  int bits = 0;      // of the family's addresses
  int hostBits = 0;  // that differ within the network
};

[[noreturn]] void Refuse(const std::string& text, const std::string& why) {
  throw UsageError("\"" + text + "\" " + why);
}

Network ReadNetwork(const std::string& text) {
  const std::size_t slash = text.find('/');
  const std::string address = text.substr(0, slash);
  Network network;
  network.family = address.find(':') == address.npos ? AF_INET : AF_INET6;
  network.bits = network.family == AF_INET ? 32 : 128;
  int prefix = 0;
  const char* begin = text.data() + slash + 1;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(begin, end, prefix);
  const bool isNumber = begin != end && error == std::errc() && stop == end;
  if (!isNumber || prefix < 0 || prefix > network.bits ||
      inet_pton(network.family, address.c_str(), network.first.data()) != 1) {
    Refuse(text, "is no network; one is written as 192.0.2.0/24 or 2001:db8::/120");
  }
  network.hostBits = network.bits - prefix;
  return network;
}

/// The address so many places behind the first of its network.
std::string AddressAt(const Network& network, std::size_t place) {
  Octets octets = network.first;
  auto at = static_cast<std::size_t>(network.bits / 8);
  for (int left = network.hostBits; left > 0; left -= 8, place >>= 8) {
    unsigned char& octet = octets[--at];
    const auto mask = static_cast<unsigned char>(left >= 8 ? 0xFF : (1 << left) - 1);
    octet = static_cast<unsigned char>((octet & ~mask) | (place & mask));
  }
  char text[INET6_ADDRSTRLEN];
  return inet_ntop(network.family, octets.data(), text, sizeof text);
}

/// All hosts of the network: without the first and the last address, which IPv4 keeps for the
/// network itself, where there are more than two.
void AddNetwork(const std::string& text, std::vector<std::string>& hosts) {
  const Network network = ReadNetwork(text);
  if (network.hostBits > 16) {
    Refuse(text, "has more than " + std::to_string(kMostHosts) + " addresses; /" +
                     std::to_string(network.bits - 16) + " is the largest network that is asked");
  }
  const std::size_t count = std::size_t{1} << network.hostBits;
  const std::size_t ends = network.family == AF_INET && count > 2 ? 1 : 0;
  for (std::size_t i = ends; i < count - ends; ++i) hosts.push_back(AddressAt(network, i));
}

void Add(const std::string& host, std::vector<std::string>& hosts) {
  if (host.find('/') != host.npos) {
    AddNetwork(host, hosts);
  } else {
    CheckHost(host);
    hosts.push_back(host);
  }
  if (hosts.size() > kMostHosts) {
    throw UsageError("more than " + std::to_string(kMostHosts) + " hosts");
  }
}

/// Words divided by blanks or line ends; "#" begins a comment.
void AddFile(const std::string& name, std::vector<std::string>& hosts) {
  std::istringstream lines(ReadInput("--file", name));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line.substr(0, line.find('#')));
    for (std::string word; words >> word;) Add(word, hosts);
  }
}

}  // namespace

std::vector<std::string> PingHosts(const PingOptions& options) {
  std::vector<std::string> hosts;
  for (const std::string& host : options.hosts) Add(host, hosts);
  if (!options.file.empty()) AddFile(options.file, hosts);
  if (hosts.empty()) {
    throw UsageError(options.file.empty() ? "HOST is required" : "--file: it names no host");
  }
  return hosts;
}

}  // namespace netro::tool
