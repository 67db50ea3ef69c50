// Asks the kernel how far the program at the other end of a loopback connection has read. Only the
// scripted servers use it, to hold a piece back until the one before was taken.
#pragma once

#include <cstdint>

namespace netro::testkit {

/// A descriptor for PeerHasRead; -1 where the kernel does not offer it.
int OpenTcpDiag();

/// True when the peer of `fd` has read all of the first `sent` bytes or is gone. Without a
/// `diagFd`: when the peer's kernel has confirmed them.
bool PeerHasRead(int diagFd, int fd, std::uint64_t sent);

}  // namespace netro::testkit
