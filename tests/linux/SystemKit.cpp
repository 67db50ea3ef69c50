#include "tests/SystemKit.h"

#include <netinet/in.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "tests/Capability.h"

namespace netro {

void SetVariable(const char* name, const char* value) {
  value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

void ReadTimeZone() { tzset(); }

void AwaitReadable(int descriptor, int milliseconds) {
  pollfd entry{descriptor, POLLIN, 0};
  poll(&entry, 1, descriptor < 0 ? 1 : milliseconds);
}

bool MakePipe(const std::string& path) { return mkfifo(path.c_str(), 0600) == 0; }

bool EchoIsPermitted() {
  for (const int type : {SOCK_DGRAM, SOCK_RAW}) {
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, IPPROTO_ICMP);
    if (fd < 0) continue;
    close(fd);
    return true;
  }
  return false;
}

std::shared_ptr<void> WithoutRawSockets() {
  return std::make_shared<WithoutCapability>(CAP_NET_RAW);
}

std::string HostName() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

}  // namespace netro
