// Whether the system allows this program an echo, and how a test does without raw sockets.
#pragma once

#include <linux/capability.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace netro {

/// True when the system grants an ICMP socket of either kind.
inline bool EchoIsPermitted() {
  for (const int type : {SOCK_DGRAM, SOCK_RAW}) {
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, IPPROTO_ICMP);
    if (fd < 0) continue;
    close(fd);
    return true;
  }
  return false;
}

/// Takes the permission for raw sockets from the calling thread, until the end of the scope.
class WithoutRawSockets {
 public:
  WithoutRawSockets() {
    syscall(SYS_capget, &header_, before_);
    __user_cap_data_struct less[2] = {before_[0], before_[1]};
    less[0].effective &= ~(1u << CAP_NET_RAW);
    syscall(SYS_capset, &header_, less);
  }
  ~WithoutRawSockets() { syscall(SYS_capset, &header_, before_); }
  WithoutRawSockets(const WithoutRawSockets&) = delete;
  WithoutRawSockets& operator=(const WithoutRawSockets&) = delete;

 private:
  __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct before_[2] = {};
};

}  // namespace netro
