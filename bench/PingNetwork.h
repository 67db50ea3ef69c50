// A network of its own for a process that measures pings.
#pragma once

namespace netro::bench {

/// Which ICMP socket the process may have in its network.
enum class PingSocket { Datagram, Raw };

/// Moves the calling process, and what it starts from then on, into a network namespace where
/// 127.0.0.0/8 answers and 10.0.0.0/8 never does. There is no way back. False where the system
/// makes no namespaces for this user.
bool EnterPingNetwork(PingSocket socket);

}  // namespace netro::bench
