// What the Linux files of this folder share about descriptors and addresses.
#pragma once

#include <netinet/in.h>

#include <cstdint>

#include "platform/Sockets.h"

namespace netro {

/// The descriptor that a handle of the platform's classes holds.
inline int Descriptor(std::intptr_t handle) { return static_cast<int>(handle); }

/// Moves descriptor 0, which the library uses for "none", to another number. -1 stays -1.
int AwayFromZero(int descriptor);

/// An address as the system's calls take it. A new one has room for both families.
struct SystemAddress {
  union {
    sockaddr_in v4;
    sockaddr_in6 v6{};
  };
  socklen_t size = sizeof v6;

  sockaddr* Generic() { return reinterpret_cast<sockaddr*>(&v6); }
  const sockaddr* Generic() const { return reinterpret_cast<const sockaddr*>(&v6); }
};

SystemAddress ToSystem(const SocketAddress& address);
SocketAddress FromSystem(const SystemAddress& system);

}  // namespace netro
