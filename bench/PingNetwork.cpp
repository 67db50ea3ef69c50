// As root of a user namespace the process may arrange its network, and fping may use raw sockets
// and any interval. Raw sockets are always allowed there; the library prefers datagram sockets when
// it may have both.

#include "bench/PingNetwork.h"

#include <net/if.h>
#include <net/route.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include "bench/Process.h"

namespace netro::bench {
namespace {

char kLoopback[] = "lo";

bool Write(const char* path, const std::string& text) {
  std::ofstream file(path);
  return static_cast<bool>(file << text << std::flush);
}

bool BecomeRoot() {
  const std::string user = "0 " + std::to_string(getuid()) + " 1";
  const std::string group = "0 " + std::to_string(getgid()) + " 1";
  return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 && Write("/proc/self/setgroups", "deny") &&
         Write("/proc/self/uid_map", user) && Write("/proc/self/gid_map", group);
}

bool SwitchLoopbackOn(int fd) {
  ifreq request{};
  std::strcpy(request.ifr_name, kLoopback);
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  return ioctl(fd, SIOCSIFFLAGS, &request) == 0;
}

void SetAddress(sockaddr& to, std::uint32_t ip) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(ip);
  std::memcpy(&to, &address, sizeof address);
}

/// Loopback takes the packets, and as they are for no address of its own it drops them.
bool AddSilentNetwork(int fd) {
  rtentry route{};
  SetAddress(route.rt_dst, 10U << 24);
  SetAddress(route.rt_genmask, 255U << 24);
  route.rt_flags = RTF_UP;
  route.rt_dev = kLoopback;
  return ioctl(fd, SIOCADDRT, &route) == 0;
}

}  // namespace

bool EnterPingNetwork(PingSocket socket) {
  if (!BecomeRoot()) {
    return false;
  }
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool arranged = SwitchLoopbackOn(fd) && AddSilentNetwork(fd);
  close(fd);
  // A new namespace allows nobody a datagram ICMP socket.
  return arranged &&
         (socket == PingSocket::Raw || Write("/proc/sys/net/ipv4/ping_group_range", "0 0"));
}

}  // namespace netro::bench
