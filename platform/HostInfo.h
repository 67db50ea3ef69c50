// Facts about this host and its network stack, and the system's own name resolver. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Address.h"

namespace netro {

/// What the network stack tells at start-up.
struct StackFacts {
  std::string description;
  std::string status;
  std::int32_t mostSockets = 0;
  std::uint8_t major = 0, minor = 0;
  std::uint8_t highestMajor = 0, highestMinor = 0;
};

StackFacts ReadStackFacts();

/// The host's own name; empty on failure.
std::string ReadHostName();
/// The addresses of the host's interfaces that are up, loopback last.
std::vector<IpAddress> ReadHostAddresses();

/// The system's table of TCP services: empty and 0 for what it does not hold.
std::string ReadServiceName(std::int32_t port);
std::int32_t ReadServicePort(const std::string& name);

/// Ask the system's resolver; both may block for many seconds. `error` tells why there is no
/// address of this family: 59 there is no such name, 11004 the name has none, 11002 nobody could
/// tell, 10055 this program lacks memory or descriptors to ask.
std::vector<IpAddress> ResolveName(const std::string& name, AddressFamily family,
                                   std::int32_t& error);
std::string ResolveAddress(const IpAddress& address, std::int32_t& error);

}  // namespace netro
