#include "tests/SystemKit.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "tests/Capability.h"

namespace netro {
namespace {

class Limit {
 public:
  Limit(__rlimit_resource_t resource, rlim_t most) : resource_(resource) {
    getrlimit(resource_, &before_);
    const rlimit now{std::min(most, before_.rlim_cur), before_.rlim_max};
    setrlimit(resource_, &now);
  }
  ~Limit() { setrlimit(resource_, &before_); }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;

 private:
  const __rlimit_resource_t resource_;
  rlimit before_{};
};

// Files that would grow over it fail, instead of ending the program.
class FileLimit {
 public:
  explicit FileLimit(unsigned bytes) : limit_(RLIMIT_FSIZE, bytes) {}
  ~FileLimit() { signal(SIGXFSZ, before_); }
  FileLimit(const FileLimit&) = delete;
  FileLimit& operator=(const FileLimit&) = delete;

 private:
  const sighandler_t before_ = signal(SIGXFSZ, SIG_IGN);
  const Limit limit_;
};

// A socket that wants the stamps.
class Stamped {
 public:
  Stamped() {
    const int on = 1;
    setsockopt(fd_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
  }
  ~Stamped() { close(fd_); }
  Stamped(const Stamped&) = delete;
  Stamped& operator=(const Stamped&) = delete;

 private:
  const int fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

}  // namespace

void SetVariable(const char* name, const char* value) {
  value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

void ReadTimeZone() { tzset(); }

bool AwaitReadable(int descriptor, int milliseconds) {
  pollfd entry{descriptor, POLLIN, 0};
  return poll(&entry, 1, descriptor < 0 ? 1 : milliseconds) == 1;
}

std::size_t Unread(int socket) {
  int count = 0;
  return ioctl(socket, FIONREAD, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

bool HasNoDelay(int socket) {
  int value = 0;
  socklen_t size = sizeof value;
  return getsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &value, &size) == 0 && value != 0;
}

void SendUrgent(int socket) { send(socket, "!", 1, MSG_OOB); }

bool InChild(const std::function<bool()>& work) {
  const pid_t child = fork();
  if (child == 0) _exit(work() ? 0 : 1);
  int status = -1;
  waitpid(child, &status, 0);
  return status == 0;
}

std::shared_ptr<void> WithDescriptors(unsigned more) {
  const int next = dup(STDERR_FILENO);
  close(next);
  return std::make_shared<Limit>(RLIMIT_NOFILE, static_cast<rlim_t>(next) + more);
}

std::shared_ptr<void> WithFileSize(unsigned bytes) { return std::make_shared<FileLimit>(bytes); }

std::shared_ptr<void> WithArrivalTimes() { return std::make_shared<Stamped>(); }

bool HasMode(const std::string& path, int mode) {
  struct stat facts {};
  return stat(path.c_str(), &facts) == 0 && static_cast<int>(facts.st_mode & 07777) == mode;
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

bool KnowsServices() { return getservbyname("http", "tcp") != nullptr; }

std::string HostName() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

}  // namespace netro
