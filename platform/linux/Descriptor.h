// What the Linux files of this folder share about descriptors and addresses.
#pragma once

#include <netinet/in.h>

#include "platform/Sockets.h"

namespace netro {

/// Moves descriptor 0, which the library uses for "none", to another number. -1 stays -1.
int AwayFromZero(int descriptor);

sockaddr_in ToSystem(const SocketAddress& address);
SocketAddress FromSystem(const sockaddr_in& system);

}  // namespace netro
